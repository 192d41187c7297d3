// Plays the whole program through the real window without a display: a line and a picture for each step. The
// tools are the demonstration's own.
#include "app/main_window.h"
#include "app/resources.h"
#include "app/zarvo_app.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTableView>
#include <QTest>

#include <chrono>
#include <cstdio>
#include <functional>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kPatience = 60s;

class Tour
{
public:
    Tour(QWidget *window, const QString &folder)
        : m_window(window)
        , m_folder(folder)
    {
    }

    template <typename View>
    View *view(const char *name) const
    {
        return m_window->findChild<View *>(QLatin1StringView(name));
    }

    /// The sheet that lies on the window; null when there is none.
    QWidget *sheet() const { return QApplication::activeModalWidget(); }
    QString status() const { return view<QLabel>("statusLabel")->text(); }

    /// Another window of the program, while it is shown.
    QWidget *window(const char *name) const
    {
        auto *found = view<QWidget>(name);
        return found && found->isVisible() ? found : nullptr;
    }
    void press(const char *button) const { QTest::mouseClick(view<QPushButton>(button), Qt::LeftButton); }

    /// Waits for the condition, then prints the line and saves the picture: of `shown`, else of the sheet,
    /// else of the main window.
    bool step(const QString &line, const std::function<bool()> &condition, const char *shown = nullptr)
    {
        if (!QTest::qWaitFor(condition, std::chrono::milliseconds(kPatience).count())) {
            std::printf("НЕ УДАЛОСЬ: %s (в строке состояния: «%s»)\n", qUtf8Printable(line),
                        qUtf8Printable(status()));
            return false;
        }
        QTest::qWait(50); // let the last change be painted
        ++m_count;
        const QString picture = u"%1/%2.png"_s.arg(m_folder).arg(m_count, 2, 10, QChar(u'0'));
        QWidget *pictured = shown ? window(shown) : sheet();
        m_last = (pictured ? pictured : m_window)->grab();
        m_last.save(picture);
        std::printf("%2d. %s\n", m_count, qUtf8Printable(line));
        std::fflush(stdout);
        return true;
    }

    /// Saves the last step's picture once more, under a name that stays when steps come and go.
    bool keepPicture(const QString &name) const { return m_last.save(u"%1/%2.png"_s.arg(m_folder, name)); }

private:
    QWidget *m_window;
    QString m_folder;
    QPixmap m_last; ///< of the last step
    int m_count = 0;
};

void type(QLineEdit *field, const QString &text)
{
    field->setFocus();
    field->selectAll();
    QTest::keyClicks(field, text);
}

// The store asks, the sheet answers.
bool signIn(Tour &tour)
{
    tour.press("login");
    if (!tour.step(u"Открыта форма входа"_s, [&] { return tour.sheet() != nullptr; }))
        return false;
    const QPointer<QWidget> sheet = tour.sheet();
    type(tour.view<QLineEdit>("account"), u"vladelets@primer.example"_s);
    if (!tour.step(u"Введён аккаунт"_s, [] { return true; }))
        return false;
    type(tour.view<QLineEdit>("password"), u"Tour-1-password"_s);
    if (!tour.step(u"Введён пароль: видны только точки"_s, [] { return true; }))
        return false;
    QTest::keyClick(sheet, Qt::Key_Return);
    auto *code = tour.view<QLineEdit>("code");
    if (!tour.step(u"Магазин просит код"_s, [&] { return code->isVisible(); }) ||
        !tour.keepPicture(u"sign-in"_s))
        return false;
    type(code, u"123456"_s);
    QTest::keyClick(sheet, Qt::Key_Return);
    if (!tour.step(u"Код отправлен"_s,
                   [&] { return tour.view<QLabel>("message")->text() == u"Проверка кода…"; }))
        return false;
    return tour.step(u"Вход выполнен и подтверждён"_s,
                     [&] { return !sheet && tour.status() == u"Вход подтверждён."; });
}

bool chooseApp(Tour &tour)
{
    auto *picker = tour.view<QComboBox>("phonePicker");
    auto *table = tour.view<QTableView>("table");
    if (!tour.step(u"Вход ещё не выполнен, телефоны найдены"_s, [&] {
            return picker->count() > 1 && picker->isEnabled() &&
                   tour.view<QLabel>("accountLabel")->text() == u"Вход не подтверждён";
        }))
        return false;
    picker->setCurrentIndex(1);
    Q_EMIT picker->activated(1);
    if (!tour.step(u"Телефон выбран, список приложений прочитан"_s,
                   [&] { return table->model()->rowCount() > 0 && table->isEnabled(); }) ||
        !tour.keepPicture(u"window"_s))
        return false;
    tour.view<QLineEdit>("search")->insert(u"заметк"_s); // QTest types Latin letters only
    if (!tour.step(u"Поиск сузил список"_s, [&] { return table->model()->rowCount() > 0; }))
        return false;
    table->setFocus();
    table->selectRow(0);
    return tour.step(u"Приложение выбрано"_s,
                     [&] { return tour.view<QPushButton>("downloadButton")->isEnabled(); });
}

bool pressDownload(Tour &tour, const QString &downloads, const char *button = "downloadButton")
{
    tour.press(button);
    auto *panel = qobject_cast<QFileDialog *>(tour.sheet());
    if (!panel)
        return false;
    auto *name = panel->findChild<QLineEdit *>(u"fileNameEdit"_s);
    name->setText(downloads);
    if (!tour.step(u"Папка для сохранения выбрана"_s, [] { return true; }))
        return false;
    QTest::keyClick(name, Qt::Key_Return);
    return true;
}

bool install(Tour &tour)
{
    tour.press("installButton");
    if (!tour.step(u"Перед установкой программа спрашивает"_s, [&] { return tour.sheet() != nullptr; }))
        return false;
    QTest::keyClick(tour.sheet(), Qt::Key_Return);
    return tour.step(u"Установка идёт"_s, [&] { return tour.status().startsWith(u"Передача IPA"); }) &&
           tour.step(u"Установленная версия прочитана с телефона"_s,
                     [&] { return tour.status().startsWith(u"Установка подтверждена."); });
}

bool showPhones(Tour &tour)
{
    tour.press("infoButton");
    if (!tour.step(
            u"Сведения о телефоне"_s, [&] { return tour.window("infoWindow") != nullptr; }, "infoWindow") ||
        !tour.keepPicture(u"phone"_s))
        return false;
    tour.window("infoWindow")->close();
    tour.press("showHistory");
    if (!tour.step(
            u"История телефонов"_s, [&] { return tour.window("historyWindow") != nullptr; }, "historyWindow"))
        return false;
    tour.window("historyWindow")->close();
    return true;
}

// A made-up store answers as fast as it is asked to: nobody watches all the downloads.
bool downloadAll(Tour &tour, const QString &downloads)
{
    qputenv("ZARVO_DEMO_SPEED", "fast");
    auto *picker = tour.view<QComboBox>("phonePicker");
    picker->setCurrentIndex(2);
    Q_EMIT picker->activated(2);
    if (!tour.step(u"Выбран другой телефон"_s,
                   [&] { return tour.view<QPushButton>("allButton")->isEnabled(); }))
        return false;
    if (!pressDownload(tour, downloads, "allButton") ||
        !tour.step(u"Приложения загружаются одно за другим"_s,
                   [&] { return tour.status().startsWith(u"Загрузка: "); }) ||
        !tour.step(u"Список обработан, отчёт записан"_s,
                   [&] { return tour.status().endsWith(u"Отчёт — report.json."); }))
        return false;
    std::printf("    %s\n", qUtf8Printable(tour.status()));
    return QFileInfo::exists(tour.view<QLabel>("transferLabel")->text() + u"/report.json"_s);
}

bool play(Tour &tour, const QString &downloads)
{
    if (!chooseApp(tour))
        return false;
    if (!pressDownload(tour, downloads) || !tour.step(u"Без входа магазин ничего не отдаёт"_s, [&] {
            return tour.sheet() && tour.status().startsWith(u"Нужен вход в Apple Account");
        }))
        return false;
    QTest::keyClick(tour.sheet(), Qt::Key_Return);
    if (!QTest::qWaitFor([&] { return !tour.sheet(); }) || !signIn(tour))
        return false;
    if (!pressDownload(tour, downloads) ||
        !tour.step(u"Загрузка идёт"_s, [&] { return tour.status().startsWith(u"Загрузка: "); }) ||
        !tour.step(u"IPA проверен и сохранён"_s, [&] { return tour.status().startsWith(u"IPA сохранён: "); }))
        return false;
    const QString file = tour.view<QLabel>("transferLabel")->text();
    const QFileInfo saved(file);
    std::printf("    %s, %lld байт\n", qUtf8Printable(saved.fileName()),
                static_cast<long long>(saved.size()));
    return saved.size() > 0 && install(tour) && showPhones(tour) && downloadAll(tour, downloads);
}

// Of the display that is none, and of a session that is none, nobody has to be told.
void tell(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (!message.startsWith(u"This plugin does not support ") &&
        !message.startsWith(u"QStandardPaths: XDG_RUNTIME_DIR not set"))
        std::fprintf(stderr, "%s\n", qUtf8Printable(qFormatLogMessage(type, context, message)));
}

} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(tell);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "tour FOLDER-FOR-PICTURES\n");
        return 1;
    }
    const QString folder = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    const QString downloads = folder + u"/downloads"_s;
    QDir(folder).removeRecursively();
    if (!QDir().mkpath(downloads)) {
        std::fprintf(stderr, "tour: cannot make %s\n", qUtf8Printable(downloads));
        return 1;
    }
    InstallRussianTexts();
    ZarvoApp controller(ResourcePath());
    controller.applicationDidFinishLaunching();
    QWidget *window = nullptr;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<MainWindow *>(widget))
            window = widget;
    }
    Tour tour(window, folder);
    return play(tour, downloads) ? 0 : 1;
}
