// The program as its user meets it: the real controller with its window offscreen, tools played by the
// helper, everything found by its name and used with mouse and keys. Main thread only.
#pragma once

#include "app/zarvo_app.h"
#include "support/files.h"
#include "support/patience.h"
#include "support/scripted_tools.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

inline constexpr std::chrono::milliseconds kLong{3 * kPatience}; ///< what ends earlier was ended

/// QTest::keyClicks() knows Latin letters only.
inline void TypeText(QWidget *widget, const QString &text)
{
    for (const QChar letter : text)
        QTest::sendKeyEvent(QTest::Click, widget, Qt::Key_unknown, QString(letter), Qt::NoModifier);
}

/// Rules that a tool follows before the usual ones.
using Rules = std::function<void(Scenario &)>;

/// What each test gets afresh. Unless told otherwise the tools are well, the account is signed in, one phone
/// is connected, and three apps are on it: one whose store identifiers are known, one that must be looked up
/// in the purchases, and one with a name like markup.
class Program
{
public:
    Program();
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    /// For initMain(): settings of the person who runs the tests are neither read nor written, and nothing is
    /// asked of the desktop's message buses.
    static void isolate();
    /// The file with the program's settings; each test begins without it.
    static QString settingsFile()
    {
        return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Zarvo/Zarvo.conf");
    }

    void playDevice(const Rules &first = {});
    void playStore(const Rules &first = {});
    /// The tool answers so to the calls with these words, and as usual to the others.
    using Words = std::initializer_list<QStringView>;
    void deviceSays(const Words &words, QStringView text, int code = 0)
    {
        playDevice([&](Scenario &tool) { tool.when(words).prints(text).exits(code); });
    }
    void storeSays(const Words &words, QStringView text, int code = 0)
    {
        playStore([&](Scenario &tool) { tool.when(words).prints(text).exits(code); });
    }
    /// The same, but not before go().
    void storeSaysLater(const Words &words, QStringView text)
    {
        playStore([&](Scenario &tool) { tool.when(words).awaits(goFile()).prints(text); });
    }
    QString goFile() const { return tools.filePath(QStringLiteral("go")); }
    void go() const { tools.touch(QStringLiteral("go")); }
    /// The arguments of the calls so far; those of the device tool without the polls.
    QList<QStringList> storeCalls() const { return tools.calls(QStringLiteral("ipatool")); }
    QList<QStringList> deviceCalls() const;

    /// Starts the program; true when its window is the active one.
    bool start();
    /// Ends the program and starts it again.
    bool restart();
    /// Starts it and waits for the phone in the list; true when it has come.
    bool startWithPhone()
    {
        return start() && QTest::qWaitFor([this] { return phonesListed().size() == 2; }, kPatience);
    }
    /// Starts it, chooses the phone and waits for the apps; true when they are there.
    bool startWithApps()
    {
        return startWithPhone() &&
               (choosePhone(),
                QTest::qWaitFor([this] { return !isBusy() && namesListed().size() == 3; }, kPatience));
    }

    template <typename Widget = QAbstractButton>
    Widget *find(const char *name) const
    {
        return window()->findChild<Widget *>(QLatin1StringView(name));
    }
    ZarvoApp &app() const { return *m_app; }
    QWidget *window() const;
    QString text(const char *label) const { return find<QLabel>(label)->text(); }
    QString status() const { return text("statusLabel"); }
    QString transfer() const { return text("transferLabel"); }
    bool isBusy() const { return find("cancelButton")->isEnabled(); }
    QStringList phonesListed() const { return firstColumn(find<QComboBox>("phonePicker")); }
    QStringList namesListed() const { return firstColumn(find<QTableView>("table")); }

    void press(const char *button) const { QTest::mouseClick(find(button), Qt::LeftButton); }
    /// Presses the button and waits until nothing runs; false when that takes too long.
    bool perform(const char *button) const
    {
        press(button);
        return QTest::qWaitFor([this] { return !isBusy(); }, kPatience);
    }
    /// Cancels the job in which the tool runs; true when both have ended and the status says no more than
    /// that.
    bool cancels(const QString &tool) const;
    /// What a press on the button asks for, also when the button is disabled.
    void ask(const char *button) const { Q_EMIT find(button)->clicked(); }
    /// Unfolds the list of phones, presses a key in it, by default the one that leads to the last phone, and
    /// confirms.
    void choosePhone(Qt::Key key = Qt::Key_End) const;
    /// Clicks the app's row; false when there is none.
    bool chooseApp(const QString &name) const;
    void type(const char *field, const QString &text) const;

    /// Presses the download button, or the one for all apps, and answers the folder chooser: sees `inspect`
    /// done, types the destination, confirms, and sees `then` done before the program goes on. False when no
    /// chooser came.
    using Inspection = std::function<void(QFileDialog &)>;
    bool download(const Inspection &inspect = {}, const std::function<void()> &then = {},
                  const char *button = "downloadButton") const;
    bool downloadAll(const Inspection &inspect = {}, const std::function<void()> &then = {}) const
    {
        return download(inspect, then, "allButton");
    }
    /// Chooses the file for installing, by its name typed into the panel.
    bool chooseIPA(const QString &file) const;

    /// The alert on the window; null when there is none.
    QDialog *alert() const;
    QStringList alertTexts() const;
    /// All that a screen reader is told on its way through the windows, or through this one.
    static QStringList told(const QWidget *only = nullptr);
    /// Presses the button of the alert that reads so.
    bool answerAlert(const QString &title) const;

    /// The names in the destination folder, hidden ones included.
    QStringList saved() const
    {
        return QDir(destination.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    ScriptedTools tools;
    QTemporaryDir destination; // made before, hence not among the temporary files
    TemporaryTmpdir temporary;
    QString mapsIPA;  ///< of the app "Карты", in the installed version
    QString notesIPA; ///< of the app "заметки"

private:
    bool activate() const;
    template <typename View>
    static QStringList firstColumn(const View *view)
    {
        QStringList texts;
        for (int row = 0; row < view->model()->rowCount(); ++row)
            texts.append(view->model()->index(row, 0).data().toString());
        return texts;
    }

    std::unique_ptr<ZarvoApp> m_app;
};

/// What the program has opened in place of the desktop, for as long as the object lives.
class OpenedFiles : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(OpenedFiles)

public:
    OpenedFiles() { QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "open"); }
    ~OpenedFiles() override { QDesktopServices::unsetUrlHandler(QStringLiteral("file")); }
    QStringList paths;

public Q_SLOTS:
    void open(const QUrl &url) { paths << url.toLocalFile(); }
};

/// A test whose functions have a program each.
class ProgramTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

protected:
    std::optional<Program> m;

private Q_SLOTS:
    void init() { m.emplace(); }
    /// Whatever happened: no working folder stays, neither beside a file nor among the temporary ones.
    void cleanup();
};
