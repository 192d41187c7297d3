#include "app/window_fixture.h"

#include <QAction>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView kNote =
    u"История хранится в Zarvo. Для работы с телефоном подключите его кабелем и выберите в "
    "главном окне.";
constexpr QStringView kEmpty = u"История устройств пуста.";
constexpr QStringView kHere = u"Телефон\niOS 17.4 • Подключён";
constexpr QStringView kAway = u"Телефон\niOS 17.4 • Не подключён";
const QString kHistoryKey = u"zarvo.deviceHistory.v1"_s;

QVariantMap entry(const QVariant &id, const QVariant &name, const QVariant &ios)
{
    return {{u"id"_s, id}, {u"name"_s, name}, {u"ios"_s, ios}};
}

void store(const QVariant &history)
{
    QSettings(u"Zarvo"_s, u"Zarvo"_s).setValue(kHistoryKey, history);
}

void damageSettings(const QByteArray &content)
{
    store(QVariantList{entry(u"1"_s, u"А"_s, u"1"_s)}); // makes the folder
    QFile file(Program::settingsFile());
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
}

} // namespace

class WindowPhonesTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup() { m.reset(); }

    void showsDetails_data();
    void showsDetails();
    void showsEachReadingInItsWindow();
    void explainsMissingDetails();

    void remembersPhones();
    void survivesDamagedSettings_data();
    void survivesDamagedSettings();
    void forgetsAPhone();
    void clearsTheHistory();
    void changesNothingDuringAJob();
    void marksWhatIsConnected();
    void closesWithKeys();

private:
    QList<QWidget *> shown(const char *name) const
    {
        QList<QWidget *> windows = m->window()->findChildren<QWidget *>(QLatin1StringView(name));
        windows.removeIf([](const QWidget *window) { return window->isHidden(); });
        return windows;
    }
    template <typename View>
    QList<View *> inHistory() const
    {
        QList<View *> views = m->find<QWidget>("historyWindow")->findChildren<View *>();
        views.removeIf([](const View *view) { return !view->isVisible(); });
        return views;
    }
    /// The texts of the history window below the note.
    QStringList history() const
    {
        QStringList texts;
        const auto labels = inHistory<QLabel>();
        for (const QLabel *label : labels)
            texts << label->text();
        return texts.value(0) == kNote ? texts.sliced(1) : QStringList{u"no note"_s};
    }
    QStringList openedHistory() const
    {
        m->press("showHistory");
        const QWidget *window = shown("historyWindow").value(0);
        const bool isActive =
            QTest::qWaitFor([=] { return QApplication::activeWindow() == window; }, kPatience);
        return isActive ? history() : QStringList{u"not active"_s};
    }
    /// The buttons in the history window: those of the entries, then the one that clears all.
    QPushButton *button(int index) const { return inHistory<QPushButton>().value(index); }
    void poll(QStringView devices)
    {
        m->playDevice([&](Scenario &tool) { tool.when({u"devices"}).prints(devices); });
        m->ask("refresh");
    }

    std::optional<Program> m;
};

void WindowPhonesTest::showsDetails_data()
{
    QTest::addColumn<QString>("info");
    QTest::addColumn<QString>("battery");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    const QString model = uR"({"details":[{"label":"Модель","value":"<b>iPhone</b>"},{"label":"Память"}]})"_s;
    const QString told = u"Модель\n<b>iPhone</b>\n\nПамять\n\n\n"_s;
    QTest::newRow("information, then battery")
        << model << uR"({"details":[{"label":"Заряд","value":80}]})"_s << 0 << told + u"Заряд\n80\n\n"_s;
    QTest::newRow("without battery") << model << uR"({"details":[{"label":"Заряд","value":80}]})"_s << 1
                                     << told;
    QTest::newRow("nothing to tell") << u"{}"_s << u"{}"_s << 0 << QString();
}

void WindowPhonesTest::showsDetails()
{
    QFETCH(const QString, info);
    QFETCH(const QString, battery);
    QFETCH(const int, code);
    QVERIFY(m->startWithApps());
    m->playDevice([&](Scenario &tool) {
        tool.when({u"info", u"PHONE-1"}).awaits(m->tools.filePath(u"go"_s)).prints(info);
        tool.when({u"battery", u"PHONE-1"}).prints(battery).exits(code);
    });
    m->press("infoButton");
    QCOMPARE(m->status(), u"Чтение сведений об iPhone…"_s);
    m->tools.touch(u"go"_s);
    EVENTUALLY_EQUAL(shown("infoWindow").size(), 1);
    EVENTUALLY(!m->isBusy());
    const QWidget *window = shown("infoWindow").first();
    QCOMPARE(window->windowTitle(), u"Сведения об iPhone"_s);
    const auto *text = window->findChild<QPlainTextEdit *>();
    QTEST(text->toPlainText(), "text");
    QVERIFY(text->isReadOnly());
    QCOMPARE(m->status(), u"Сведения обновлены. Недоступные показатели отмечены явно."_s);
    QVERIFY(!m->alert());
}

void WindowPhonesTest::showsEachReadingInItsWindow()
{
    QVERIFY(m->startWithApps());
    m->press("infoButton");
    EVENTUALLY_EQUAL(shown("infoWindow").size(), 1);
    EVENTUALLY(!m->isBusy());
    m->playDevice([](Scenario &tool) { tool.when({u"info"}).prints(u"{}"); });
    m->press("infoButton");
    EVENTUALLY_EQUAL(shown("infoWindow").size(), 2);
    EVENTUALLY(!m->isBusy());
    const QWidget *newer = shown("infoWindow").last();
    QVERIFY(newer->findChild<QPlainTextEdit *>()->toPlainText().isEmpty());
    shown("infoWindow").first()->close();
    EVENTUALLY_EQUAL(shown("infoWindow").size(), 1);
    QVERIFY(newer->isVisible() && m->window()->isVisible());
}

void WindowPhonesTest::explainsMissingDetails()
{
    QVERIFY(m->startWithApps());
    m->playDevice([](Scenario &tool) {
        tool.when({u"info"}).prints(uR"({"error":"Телефон заблокирован."})").exits(1);
    });
    m->press("infoButton");
    EVENTUALLY(m->alert());
    QCOMPARE(m->status(), u"Телефон заблокирован."_s);
    QCOMPARE(shown("infoWindow").size(), 0);
    QVERIFY(m->answerAlert(u"Понятно"_s));
    m->choosePhone(Qt::Key_Home);
    m->ask("infoButton"); // no phone, nothing to ask
    QVERIFY(!m->isBusy());
}

void WindowPhonesTest::remembersPhones()
{
    m->playDevice([](Scenario &tool) {
        tool.when({u"devices"})
            .prints(uR"({"devices":[{"id":"P2","name":"яблоко"},{"id":"P3"},{"id":"PHONE-1","name":"Ю"}]})");
        tool.when({u"apps"}).prints(u"{}");
    });
    QVERIFY(m->start());
    EVENTUALLY_EQUAL(m->phonesListed().size(), 4);
    QCOMPARE(openedHistory(), QStringList{kEmpty.toString()});
    QVERIFY(!button(0)->isEnabled()); // nothing to clear
    for (const Qt::Key key : {Qt::Key_End, Qt::Key_Up, Qt::Key_Up}) {
        m->choosePhone(key);
        EVENTUALLY(!m->isBusy());
    }
    QCOMPARE(history(), (QStringList{u"iPhone\niOS  • Подключён"_s, u"Ю\niOS  • Подключён"_s,
                                     u"яблоко\niOS  • Подключён"_s}));

    m->playDevice(); // now one of them is there, under another name
    QVERIFY(m->restart());
    QCOMPARE(openedHistory(), (QStringList{u"iPhone\niOS  • Не подключён"_s, u"Ю\niOS  • Подключён"_s,
                                           u"яблоко\niOS  • Не подключён"_s}));
    m->choosePhone();
    EVENTUALLY(!m->isBusy());
    QCOMPARE(history(), (QStringList{u"iPhone\niOS  • Не подключён"_s, kHere.toString(),
                                     u"яблоко\niOS  • Не подключён"_s}));
}

void WindowPhonesTest::survivesDamagedSettings_data()
{
    QTest::addColumn<std::function<void()>>("damage");
    QTest::addColumn<QStringList>("texts");
    const auto row = [](const char *name, const std::function<void()> &damage, const QStringList &texts) {
        QTest::newRow(name) << damage << texts;
    };
    row("entries that are none are left out, the others keep their order",
        [] {
            store(QVariantList{entry(u"2"_s, u"Б"_s, u"16"_s), 5, u"text"_s, QVariantList{1},
                               entry({}, u"x"_s, u"1"_s), entry(u""_s, u"x"_s, u"1"_s),
                               entry(7, u"x"_s, u"1"_s), entry(u"3"_s, {}, u"1"_s),
                               entry(u"1"_s, u"А"_s, 17)});
        },
        {u"Б\niOS 16 • Не подключён"_s, u"А\niOS  • Не подключён"_s});
    const QStringList none{kEmpty.toString()};
    row(
        "a text instead of a list", [] { store(u"text"_s); }, none);
    row(
        "a map instead of a list", [] { store(entry(u"1"_s, u"А"_s, u"1"_s)); }, none);
    row(
        "no settings file at all",
        [] { damageSettings("\0\xff[[[=\n@Variant(\0\0\0\x09\xff\xff\xff\xff)\n"_ba); }, none);
    row(
        "a value cut short",
        [] { damageSettings("[General]\nzarvo.deviceHistory.v1=@Variant(\\0\\0\\0\\b\\0\\0\\0\\x3\\0"); },
        none);
}

void WindowPhonesTest::survivesDamagedSettings()
{
    QFETCH(const std::function<void()>, damage);
    damage();
    QVERIFY(m->startWithPhone());
    QTEST(openedHistory(), "texts");
    m->choosePhone();
    EVENTUALLY(!m->isBusy());
    QVERIFY(m->restart()); // what is damaged does not keep the new entry from being stored
    QVERIFY(openedHistory().contains(kHere));
}

void WindowPhonesTest::forgetsAPhone()
{
    store(QVariantList{entry(u"1"_s, u"А"_s, u"1"_s), entry(u"2"_s, u"Я"_s, u"2"_s)});
    QVERIFY(m->startWithApps());
    const QString first = u"А\niOS 1 • Не подключён"_s;
    QCOMPARE(openedHistory(), (QStringList{first, kHere.toString(), u"Я\niOS 2 • Не подключён"_s}));
    button(2)->setFocus();
    QTest::keyClick(button(2), Qt::Key_Space);
    QCOMPARE(history(), (QStringList{first, kHere.toString()}));
    QCOMPARE(m->namesListed().size(), 3); // it was not the current one
    QVERIFY(button(2)->hasFocus());       // what stands in its place now

    button(1)->setFocus();
    QTest::keyClick(button(1), Qt::Key_Space);
    QCOMPARE(history(), QStringList{first});
    QCOMPARE(m->namesListed(), QStringList());
    QCOMPARE(m->find<QComboBox>("phonePicker")->currentIndex(), 0);
    QVERIFY(m->restart());
    QCOMPARE(openedHistory(), QStringList{first});
}

void WindowPhonesTest::clearsTheHistory()
{
    QVERIFY(m->startWithApps());
    QCOMPARE(openedHistory(), QStringList{kHere.toString()});
    QCOMPARE(button(1)->text(), u"Очистить историю"_s);
    QTest::mouseClick(button(1), Qt::LeftButton);
    QCOMPARE(history(), QStringList{kEmpty.toString()});
    QVERIFY(!button(0)->isEnabled());
    QCOMPARE(m->namesListed(), QStringList());
    QVERIFY(m->restart());
    QCOMPARE(openedHistory(), QStringList{kEmpty.toString()});
}

void WindowPhonesTest::changesNothingDuringAJob()
{
    QVERIFY(m->startWithApps());
    QCOMPARE(openedHistory(), QStringList{kHere.toString()});
    m->playStore(
        [&](Scenario &tool) { tool.when({u"auth"}).awaits(m->tools.filePath(u"go"_s)).prints(u"{}"); });
    m->press("checkAccount");
    QVERIFY(m->isBusy());
    for (const int index : {0, 1}) {
        QTest::mouseClick(button(index), Qt::LeftButton);
        QCOMPARE(history(), QStringList{kHere.toString()});
    }
    QCOMPARE(m->namesListed().size(), 3);
    m->tools.touch(u"go"_s);
    EVENTUALLY(!m->isBusy());
}

void WindowPhonesTest::marksWhatIsConnected()
{
    QVERIFY(m->startWithApps());
    QCOMPARE(openedHistory(), QStringList{kHere.toString()});
    button(1)->setFocus();
    poll(u"{\"devices\":[]}");
    EVENTUALLY_EQUAL(history(), QStringList{kAway.toString()});
    QVERIFY(button(1)->hasFocus());
    shown("historyWindow").first()->close();
    poll(uR"({"devices":[{"id":"PHONE-1","name":"Другое имя"}]})");
    EVENTUALLY_EQUAL(m->phonesListed().size(), 2);
    QCOMPARE(openedHistory(),
             QStringList{kHere.toString()}); // by its id; the name is the one of the last choice
}

void WindowPhonesTest::closesWithKeys()
{
    QVERIFY(m->startWithApps());
    for (const QKeyCombination keys : {QKeyCombination(Qt::Key_Escape), Qt::CTRL | Qt::Key_W}) {
        openedHistory();
        QWidget *window = shown("historyWindow").value(0);
        QVERIFY(window);
        QTest::keyClick(window, keys.key(), keys.keyboardModifiers());
        QVERIFY2(window->isHidden(), qPrintable(QKeySequence(keys).toString()));
    }
    openedHistory();
    bool hasQuit = false;
    const auto actions = m->window()->findChildren<QAction *>();
    for (QAction *action : actions) {
        if (action->text() == u"Завершить Zarvo")
            QObject::connect(action, &QAction::triggered, action, [&] { hasQuit = true; });
    }
    QTest::keyClick(shown("historyWindow").first(), Qt::Key_Q, Qt::ControlModifier);
    QVERIFY(hasQuit);
}

QTEST_MAIN(WindowPhonesTest)
#include "tst_window_phones.moc"
