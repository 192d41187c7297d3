#include "app/spinner.h"
#include "app/window_fixture.h"

#include <QApplication>
#include <QClipboard>
#include <QFile>

#include <functional>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView kConnect = u"Подключите iPhone кабелем и выберите его в списке.";
constexpr QStringView kFound = u"iPhone найден. Выберите устройство в списке выше.";
constexpr QStringView kNotConfirmed = u"Вход не подтверждён. Выполните вход в Apple Account.";
constexpr qsizetype kDepth = 100'000;

/// A way in which a tool goes wrong, and what is said of it when it was to confirm the account.
struct Fault
{
    const char *name;
    QStringView sentence;
    std::function<void(Scenario &)> steps; // none: there is no tool, or none that can run
    QStringView advice = {};               // beside the sentence
};

const Fault kFaults[] = {
    {"missing", u"Не удалось запустить «ipatool»: программы нет в папке ", {}},
    {"not executable", u"Не удалось запустить «ipatool»: файл ", {}},
    {"not UTF-8", kNotConfirmed,
     [](Scenario &tool) { tool.printsBytes("{\"success\":true,\"apps\":[],\"x\":\"\xff\"}"); }},
    {"nested deeply", kNotConfirmed,
     [](Scenario &tool) { tool.prints(u"{\"success\":true,\"apps\":"_s + QString(kDepth, u'[')); }},
    {"another program", u"Загрузку выполнить не удалось.\n\nКод модуля: 1. Причина: Error: unknown command",
     [](Scenario &tool) { tool.printsError(u"Error: unknown command \"auth\"").exits(1); },
     u"Эта версия ipatool не подходит"},
};

/// The tool goes wrong in the calls whose arguments contain `word`.
void spoil(Program &program, const QString &tool, QStringView word, const Fault &fault)
{
    const Rules rules = [&](Scenario &scenario) { fault.steps(scenario.when({word})); };
    if (fault.steps) {
        tool == "ipatool"_L1 ? program.playStore(rules) : program.playDevice(rules);
        return;
    }
    // Its permissions are those of all played tools, hence another file.
    QFile file(program.tools.toolPath(tool));
    QVERIFY(!file.exists() || file.remove());
    QVERIFY(QByteArrayView(fault.name) == "missing" || file.open(QIODevice::WriteOnly));
}

void addFaults()
{
    QTest::addColumn<const Fault *>("fault");
    for (const Fault &fault : kFaults)
        QTest::newRow(fault.name) << &fault;
}

} // namespace

class WindowJobsTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Program::isolate(); }

private Q_SLOTS:
    void init() { m.emplace(); }
    void cleanup() { m.reset(); }

    void confirmsTheAccount_data();
    void confirmsTheAccount();
    void keepsQuietAboutTheFirstCheckOnly_data();
    void keepsQuietAboutTheFirstCheckOnly();
    void copiesTheExplanation();
    void runsOneJobAtATime();
    void keepsTheFocusOffCancelling();
    void survivesABadStoreTool_data() { addFaults(); }
    void survivesABadStoreTool();
    void survivesABadDeviceTool_data() { addFaults(); }
    void survivesABadDeviceTool();

private:
    void failChecks()
    {
        m->playStore([](Scenario &tool) { tool.when({u"auth", u"info"}).prints(u"{}"); });
    }

    std::optional<Program> m;
};

void WindowJobsTest::confirmsTheAccount_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("label");
    QTest::newRow("known") << uR"({"email":"a&b@example.com","success":true})"_s
                           << u"Вход выполнен: a&b@example.com"_s;
    QTest::newRow("without e-mail") << uR"({"success":true})"_s << u"Вход выполнен: "_s;
}

void WindowJobsTest::confirmsTheAccount()
{
    QFETCH(const QString, answer);
    QVERIFY(m->startWithPhone());
    m->playStore([&](Scenario &tool) { tool.when({u"auth", u"info"}).prints(answer); });
    m->press("checkAccount");
    QCOMPARE(m->status(), u"Проверка входа…"_s);
    EVENTUALLY_EQUAL(m->status(), u"Вход подтверждён."_s);
    QTEST(m->text("accountLabel"), "label");
    failChecks();
    EVENTUALLY(!m->isBusy());
    m->press("checkAccount");
    EVENTUALLY(m->alert());
    QCOMPARE(m->text("accountLabel"), u"Вход не подтверждён"_s);
}

void WindowJobsTest::keepsQuietAboutTheFirstCheckOnly_data()
{
    QTest::addColumn<QString>("devices");
    QTest::addColumn<QString>("prompt");
    QTest::newRow("no phone") << uR"({"devices":[]})"_s << kConnect.toString();
    QTest::newRow("two phones") << uR"({"devices":[{"id":"1"},{"id":"2"}]})"_s << kFound.toString();
}

void WindowJobsTest::keepsQuietAboutTheFirstCheckOnly()
{
    QFETCH(const QString, devices);
    m->playDevice([&](Scenario &tool) { tool.when({u"devices"}).prints(devices); });
    failChecks();
    QVERIFY(m->start());
    QVERIFY(m->tools.waitForCalls(u"devicezarvo"_s, 1));
    EVENTUALLY(!m->isBusy());
    QFETCH(const QString, prompt);
    EVENTUALLY_EQUAL(m->status(), prompt);
    QVERIFY(!m->alert());
    QCOMPARE(m->transfer(), QString());
    QCOMPARE(m->text("accountLabel"), u"Вход не подтверждён"_s);

    m->press("checkAccount");
    EVENTUALLY(m->alert());
    QCOMPARE(m->status(), kNotConfirmed);
}

void WindowJobsTest::copiesTheExplanation()
{
    QVERIFY(m->startWithPhone());
    failChecks();
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->setText(u"before"_s);
    for (const auto &[title, copied] : {std::pair(u"Понятно"_s, u"before"_s),
                                        std::pair(u"Скопировать ошибку"_s, kNotConfirmed.toString())}) {
        m->press("checkAccount");
        EVENTUALLY(m->alert());
        QVERIFY(m->answerAlert(title));
        QCOMPARE(clipboard->text(), copied);
    }
    m->press("checkAccount");
    EVENTUALLY(m->alert());
    clipboard->setText(u"before"_s);
    QTest::keyClick(m->alert(), Qt::Key_Return); // the first button is the default one
    EVENTUALLY(!m->alert());
    QCOMPARE(clipboard->text(), u"before"_s);
}

void WindowJobsTest::runsOneJobAtATime()
{
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    m->playStore([&](Scenario &tool) {
        tool.when({u"auth", u"info"}).awaits(m->tools.filePath(u"go"_s)).prints(u"{}");
    });
    const qsizetype storeCalls = m->tools.calls(u"ipatool"_s).size();
    const qsizetype deviceCalls = m->tools.calls(u"devicezarvo"_s).size();
    m->press("checkAccount");
    for (const char *other : {"checkAccount", "reloadApps", "refresh"})
        m->ask(other);
    QVERIFY(m->tools.waitForCalls(u"ipatool"_s, storeCalls + 1));
    QStringList enabled;
    const auto widgets = m->window()->findChildren<QWidget *>();
    for (const QWidget *widget : widgets) {
        if (widget->isEnabled() && widget->focusPolicy() & Qt::TabFocus)
            enabled.append(widget->objectName());
    }
    QCOMPARE(enabled, QStringList{u"cancelButton"_s});
    QVERIFY(m->find<Spinner>("spinner")->isAnimating());
    QCOMPARE(m->status(), u"Проверка входа…"_s);

    m->tools.touch(u"go"_s);
    EVENTUALLY(!m->isBusy());
    QVERIFY(!m->find<Spinner>("spinner")->isAnimating());
    QVERIFY(m->answerAlert(u"Понятно"_s));
    QCOMPARE(m->tools.calls(u"ipatool"_s).size(), storeCalls + 1);
    const auto after = m->tools.calls(u"devicezarvo"_s).sliced(deviceCalls);
    QVERIFY(!after.contains(QStringList{u"apps"_s, u"PHONE-1"_s}));
    QVERIFY(m->find("downloadButton")->isEnabled());
}

void WindowJobsTest::keepsTheFocusOffCancelling()
{
    QVERIFY(m->startWithPhone());
    m->playStore([&](Scenario &tool) { tool.when({u"auth", u"info"}).awaits(m->tools.filePath(u"go"_s)); });
    QAbstractButton *check = m->find("checkAccount");
    check->setFocus();
    QTest::keyClick(check, Qt::Key_Space);
    QVERIFY(m->isBusy());
    QWidget other;
    other.show();
    for (QWidget *next : {m->window(), &other, m->window()}) {
        next->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(next));
        for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return})
            QTest::keyClick(next->windowHandle(), key);
    }
    m->tools.touch(u"go"_s);
    EVENTUALLY(m->alert());
    QCOMPARE(m->status(), kNotConfirmed); // not cancelled
    QVERIFY(m->answerAlert(u"Понятно"_s));
    EVENTUALLY_EQUAL(QApplication::focusWidget(), check);
}

void WindowJobsTest::survivesABadStoreTool()
{
    QFETCH(const Fault *const, fault);
    QVERIFY(m->startWithApps() && m->chooseApp(u"Карты"_s));
    spoil(*m, u"ipatool"_s, u"auth", *fault);
    QVERIFY(m->download());
    EVENTUALLY(m->alert());
    QCOMPARE(m->status().left(fault->sentence.size()), fault->sentence);
    const auto labels = m->alert()->findChildren<QLabel *>();
    QCOMPARE(labels.value(1)->text(), m->status());
    QCOMPARE(labels.size(), fault->advice.isEmpty() ? 2 : 3);
    QVERIFY(labels.last()->text().startsWith(fault->advice) || fault->advice.isEmpty());
    QVERIFY(m->answerAlert(u"Понятно"_s));
    QCOMPARE(m->saved(), QStringList());
    m->type("search", u"заметки"_s);
    QCOMPARE(m->namesListed(), QStringList{u"заметки"_s});
}

// The list of phones becomes empty without a word; the read of the apps asks to choose the phone again.
void WindowJobsTest::survivesABadDeviceTool()
{
    QFETCH(const Fault *const, fault);
    QVERIFY(m->startWithPhone());
    spoil(*m, u"devicezarvo"_s, u"apps", *fault);
    m->choosePhone();
    EVENTUALLY(!m->isBusy());
    EVENTUALLY_EQUAL(m->find<QComboBox>("phonePicker")->currentIndex(), 0);

    spoil(*m, u"devicezarvo"_s, u"devices", *fault);
    m->press("refresh");
    EVENTUALLY_EQUAL(m->phonesListed().size(), 1);
    EVENTUALLY_EQUAL(m->status(), kConnect);
    QVERIFY(!m->alert());
    QVERIFY(m->find("refresh")->isEnabled());
}

QTEST_MAIN(WindowJobsTest)
#include "tst_window_jobs.moc"
