// The sign-in as its user meets it: the real window offscreen, the store tool played on a real terminal, a
// clock and a keyboard that the test holds in its hand. Main thread only.
#pragma once

#include "signin/input_source.h"
#include "signin/sign_in_session.h"
#include "support/patience.h"
#include "support/scripted_tools.h"

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QWidget>

#include <chrono>
#include <memory>
#include <utility>

inline constexpr QStringView kAccountPrompt = u"enter Apple ID (email address or phone number): ";
inline constexpr QStringView kPasswordPrompt = u"enter password: ";
inline constexpr QStringView kCodePrompt = u"enter 2FA code: ";
inline constexpr QStringView kSuccess =
    u"{\"email\":\"owner@example.com\",\"name\":\"Имя\",\"success\":true}\n";

inline const QString kAccount = QStringLiteral("owner@example.com");
inline const QString kPassword = QStringLiteral("Correct horse 7");
inline const QString kEnterCode = QStringLiteral(
    "Введите код с доверенного устройства этого аккаунта. Повторный запрос перезапускает вход; "
    "отдельная отправка SMS не поддерживается.");

/// Plays the tool up to its question for the code.
inline Scenario &UntilCode(Scenario &scenario)
{
    return scenario.asks(kAccountPrompt).asks(kPasswordPrompt, Scenario::Typing::Raw).prints(u"\r\n");
}

inline Scenario &UntilCode(Scenario &&scenario)
{
    return UntilCode(scenario);
}

/// Layouts that exist only here.
class PlayedKeyboard : public InputSource
{
public:
    QString current() override { return inUse; }
    QString english() override { return latin; }
    void select(const QString &identifier) override { inUse = identifier; }

    QString latin = QStringLiteral("us");
    QString inUse = QStringLiteral("ru");
};

class SignIn
{
public:
    SignIn();

    /// Shows the window; true when it is the active one.
    bool open(const QString &proposed = {});
    /// Fills in both fields and presses "Войти"; true when they were there to be filled in.
    bool start(const QString &account = kAccount, const QString &password = kPassword);

    QDialog *window() const;
    template <typename Widget = QPushButton>
    Widget *find(const char *name) const
    {
        return window()->findChild<Widget *>(QLatin1StringView(name));
    }
    QString message() const { return find<QLabel>("message")->text(); }
    QString note() const { return find<QLabel>("keyboardNote")->text(); }
    /// What the field keeps, which is not what it shows.
    QString secret(const char *name) const;
    void type(const char *field, const QString &text) const;
    void paste(const char *field, const QString &text) const;
    void press(const char *button) const;
    /// Types the code and presses "Подтвердить код".
    void submit(const QString &code) const;

    /// Account and password can be typed, nothing of the code is to be seen.
    bool isEditing() const;
    /// The lines that the tool has read.
    QStringList linesRead() const;
    /// The tool's processes that are alive.
    QList<pid_t> running() const;

    ScriptedTools tools;
    QWidget parent;
    QList<bool> outcomes; ///< what the completion was called with
    std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();
    PlayedKeyboard *keyboard = nullptr;
    std::unique_ptr<LegacyAuth> auth;

private:
    QLineEdit *emptied(const char *field) const;
};

/// A test whose functions have a sign-in each, after which no child, no descriptor and no thread is left.
class SignInTest : public QObject
{
    Q_OBJECT

protected:
    Scenario tool() const { return m->tools.add(QStringLiteral("ipatool")); }
    void openAndStart() { QVERIFY(m->open() && m->start()); }

    std::unique_ptr<SignIn> m;

private:
    static std::pair<qsizetype, qsizetype> inUse() { return {OwnDescriptorCount(), OwnThreadCount()}; }
    std::pair<qsizetype, qsizetype> m_before;

private Q_SLOTS:
    void initTestCase()
    {
        SignIn first; // what Qt opens once stays open
        QVERIFY(first.open() && first.start());
    }
    void init()
    {
        m_before = inUse();
        m = std::make_unique<SignIn>();
    }
    void cleanup()
    {
        m.reset();
        EVENTUALLY(OwnChildren().isEmpty());
        EVENTUALLY_EQUAL(inUse(), m_before); // the threads that watched the children are on their way out
    }
};
