#include "app/window_fixture.h"

#include "ipa_writer.h"

#include <QAbstractItemView>
#include <QAccessible>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView kPhones = uR"({"devices":[{"id":"PHONE-1","name":"Телефон","ios":"17.4"}]})";
constexpr QStringView kApps = uR"({"apps":[
{"id":"com.example.notes","name":"заметки","version":"2.0"},
{"id":"com.example.pair","name":"Tom & <b>Jerry</b>","version":"1"},
{"id":"com.example.maps","name":"Карты","version":"1.5","storeID":123,"storeVersionID":"456",
 "licenseAccount":"first@example.com"}]})";
constexpr QStringView kInfo = uR"({"details":[{"label":"Модель","value":"iPhone"}]})";
constexpr QStringView kSignedIn = uR"({"email":"owner@example.com","success":true})";

QString makeIPA(const QString &path, const QString &id, const QString &version)
{
    if (!writeIPA(QFile::encodeName(path).toStdString(), {.id = id, .version = version}))
        qFatal("cannot write an IPA");
    return path;
}

QFileDialog *openChooser()
{
    return qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
}

QPushButton *buttonReading(const QWidget *parent, const QString &title)
{
    for (QPushButton *button : parent->findChildren<QPushButton *>()) {
        if (button->text() == title)
            return button;
    }
    return nullptr;
}

} // namespace

void Program::isolate()
{
    static const QTemporaryDir home;
    for (const char *folder : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"})
        qputenv(folder, QFile::encodeName(home.path()));
    for (const char *bus : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
        qputenv(bus, "unix:path=/nonexistent");
}

Program::Program()
    : mapsIPA(makeIPA(tools.filePath(u"maps.ipa"_s), u"com.example.maps"_s, u"1.5"_s))
    , notesIPA(makeIPA(tools.filePath(u"notes.ipa"_s), u"com.example.notes"_s, u"2.1"_s))
    , m_app(std::make_unique<ZarvoApp>(tools.path()))
{
    QApplication::setQuitOnLastWindowClosed(false);
    QFile::remove(settingsFile());
    playDevice();
    playStore();
}

Program::~Program() = default;

void Program::playDevice(const Rules &first)
{
    Scenario scenario = tools.add(u"devicezarvo"_s);
    if (first)
        first(scenario);
    scenario.when({u"devices"}).prints(kPhones);
    scenario.when({u"apps", u"PHONE-1"}).prints(QString(kApps.toString()).remove(u'\n'));
    scenario.when({u"info", u"PHONE-1"}).prints(kInfo);
}

void Program::playStore(const Rules &first)
{
    Scenario scenario = tools.add(u"ipatool"_s);
    if (first)
        first(scenario);
    scenario.when({u"auth", u"info"}).prints(kSignedIn);
    scenario.when({u"list-purchases"}).prints(u"{\"apps\":[],\"count\":0,\"totalCount\":0}");
    scenario.when({u"download", u"--app-id", u"123"}).copies(mapsIPA).prints(u"{\"success\":true}");
    scenario.when({u"download"}).copies(notesIPA).prints(u"{\"success\":true}");
}

QList<QStringList> Program::deviceCalls() const
{
    QList<QStringList> calls = tools.calls(u"devicezarvo"_s);
    calls.removeAll(QStringList{u"devices"_s});
    return calls;
}

// What a desktop does when the window comes and when a dialog of it goes.
bool Program::activate() const
{
    window()->activateWindow();
    return QTest::qWaitForWindowActive(window(), kPatience);
}

bool Program::start()
{
    m_app->applicationDidFinishLaunching();
    return activate();
}

bool Program::restart()
{
    m_app.reset();
    QCoreApplication::processEvents(); // what still tells of the former window must not reach the new one
    m_app = std::make_unique<ZarvoApp>(tools.path());
    return startWithPhone();
}

QWidget *Program::window() const
{
    const QWidgetList all = QApplication::topLevelWidgets();
    for (QWidget *widget : all) {
        if (widget->objectName() == "window"_L1)
            return widget;
    }
    return nullptr;
}

bool Program::cancels(const QString &tool) const
{
    const pid_t child = tools.events(tool, u"call").last().value("pid"_L1).toInt();
    const bool isOver =
        perform("cancelButton") && QTest::qWaitFor([=] { return !IsProcessAlive(child); }, kPatience);
    return isOver && status() == u"Операция отменена." && !alert();
}

void Program::choosePhone(Qt::Key key) const
{
    auto *picker = find<QComboBox>("phonePicker");
    picker->setFocus();
    picker->showPopup();
    QTest::keyClick(picker->view(), key);
    QTest::keyClick(picker->view(), Qt::Key_Return);
}

bool Program::chooseApp(const QString &name) const
{
    auto *table = find<QTableView>("table");
    const qsizetype row = namesListed().indexOf(name);
    if (row < 0)
        return false;
    const QModelIndex cell = table->model()->index(static_cast<int>(row), 0);
    table->scrollTo(cell);
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->visualRect(cell).center());
    return table->selectionModel()->isRowSelected(cell.row());
}

void Program::type(const char *field, const QString &text) const
{
    auto *line = find<QLineEdit>(field);
    line->setFocus();
    line->selectAll();
    QTest::keyClick(line, Qt::Key_Delete);
    TypeText(line, text);
}

bool Program::download(const Inspection &inspect, const std::function<void()> &then, const char *button) const
{
    press(button);
    QFileDialog *chooser = openChooser();
    if (!chooser)
        return false;
    if (then) // comes before the program hears of the choice
        QObject::connect(chooser, &QDialog::accepted, chooser, then, Qt::SingleShotConnection);
    if (inspect)
        inspect(*chooser);
    chooser->findChild<QLineEdit *>(u"fileNameEdit"_s)->setText(destination.path());
    QPushButton *confirm = buttonReading(chooser, u"Сохранить сюда"_s);
    if (confirm && chooser->isVisible())
        confirm->click();
    if (chooser->isVisible())
        chooser->reject();
    return activate();
}

bool Program::chooseIPA(const QString &file) const
{
    press("chooseIPA");
    QFileDialog *chooser = openChooser();
    if (!chooser)
        return false;
    chooser->activateWindow(); // what a desktop does
    auto *name = chooser->findChild<QLineEdit *>(u"fileNameEdit"_s);
    name->setFocus();
    if (!QTest::qWaitFor([=] { return name->hasFocus(); }, kPatience))
        return false;
    name->setText(file);
    QTest::keyClick(name, Qt::Key_Return);
    return !chooser->isVisible() && activate();
}

QDialog *Program::alert() const
{
    const auto dialogs = window()->findChildren<QDialog *>();
    for (QDialog *dialog : dialogs) {
        if (dialog->isVisible())
            return dialog;
    }
    return nullptr;
}

QStringList Program::alertTexts() const
{
    QStringList texts;
    const auto labels = alert() ? alert()->findChildren<QLabel *>() : QList<QLabel *>();
    for (const QLabel *label : labels)
        texts << label->text();
    return texts;
}

QStringList Program::told(const QWidget *only)
{
    QStringList texts;
    QList<QAccessibleInterface *> open;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible() && (!only || widget == only))
            open.append(QAccessible::queryAccessibleInterface(widget));
    }
    while (!open.isEmpty()) {
        const QAccessibleInterface *at = open.takeFirst();
        if (at->state().invisible)
            continue;
        for (const auto kind : {QAccessible::Name, QAccessible::Description, QAccessible::Value})
            texts.append(at->text(kind));
        for (int i = 0; i < at->childCount(); ++i)
            open.append(at->child(i));
    }
    texts.removeAll(QString());
    return texts;
}

bool Program::answerAlert(const QString &title) const
{
    QPushButton *button = alert() ? buttonReading(alert(), title) : nullptr;
    if (button)
        QTest::mouseClick(button, Qt::LeftButton);
    return button && !alert() && activate();
}

void ProgramTest::cleanup()
{
    if (m) {
        EVENTUALLY_EQUAL(FilesBelow(m->destination.path(), u".zarvo-*"_s), QStringList());
        EVENTUALLY_EQUAL(m->temporary.leftovers(), QStringList());
    }
    m.reset();
}
