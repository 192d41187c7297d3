#include "tool_fixture.h"

#include <QTest>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr QStringView kCancelled = u"Операция отменена.";
constexpr QStringView kTimedOut = u"Время ожидания истекло. Проверьте подключение и повторите попытку.";
constexpr QStringView kTooMuch = u"Модуль вывел слишком много данных. Повторите попытку.";

} // namespace

class ToolRunnerTest : public ToolFixture
{
    Q_OBJECT

private Q_SLOTS:
    void reportsHowTheChildEnded_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<ToolResult>("expected");
        const auto row = [](const char *name, const ToolResult &expected, const Script &script) {
            QTest::newRow(name) << script << expected;
        };
        row("exit 0 with nothing", {}, [](Scenario &s) { s.exits(0); });
        row("exit 3 with a word on standard error", {3, {}, u"x"_s, {}},
            [](Scenario &s) { s.printsError(u"x").exits(3); });
        row("both outputs, apart", {0, u"да\n"_s, u"нет"_s, "да\n"},
            [](Scenario &s) { s.prints(u"да\n").printsError(u"нет"); });
        row("killed: the signal's number", {9, u"a"_s, {}, "a"},
            [](Scenario &s) { s.prints(u"a").raises(SIGKILL); });
        row("not UTF-8: text empty, bytes kept", {0, {}, {}, "ab\xff"},
            [](Scenario &s) { s.printsBytes("ab\xff"); });
    }

    void reportsHowTheChildEnded()
    {
        QFETCH(const Script, script);
        QFETCH(const ToolResult, expected);
        play(script);
        Error error{u"untouched"_s};
        const auto result = run({}, {}, &error);
        QVERIFY(result);
        QCOMPARE(error.message, u"untouched"_s);
        QCOMPARE(result->code, expected.code);
        QCOMPARE(result->out, expected.out);
        QCOMPARE(result->err, expected.err);
        QCOMPARE(result->data, expected.data);
    }

    void keepsOutputsPrivate()
    {
        const mode_t before = ::umask(0);
        tool().prints(u"secret").awaits(file(u"seen"_s));
        QStringList seen;
        RunHooks hooks;
        hooks.tick = [&] {
            seen.clear();
            for (const QString &folder : PrivateFoldersIn(m_tmpdir->path())) {
                const QString path = m_tmpdir->path() + u'/' + folder;
                for (const QString &file : {path, path + u"/out"_s, path + u"/err"_s}) {
                    struct stat status = {};
                    if (::stat(QFile::encodeName(file).constData(), &status) == 0)
                        seen.append(QString::number(status.st_mode & 07777, 8));
                }
            }
            m_tools->touch(u"seen"_s);
        };
        const auto result = run({}, hooks);
        ::umask(before);
        QVERIFY(result);
        QCOMPARE(seen, QStringList({u"700"_s, u"600"_s, u"600"_s}));
    }

    void failsWithoutAFolderForTemporaryFiles()
    {
        tool().exits(0);
        const QByteArray folder = qgetenv("TMPDIR");
        qputenv("TMPDIR", folder + "/missing");
        Error error;
        const auto result = run({}, {}, &error);
        qputenv("TMPDIR", folder);
        QVERIFY2(!result, qPrintable(error.message));
        QVERIFY2(error.message.endsWith(u": Нет такого файла или каталога."), qPrintable(error.message));
        QCOMPARE(events(u"call").size(), 0);
    }

    void stopsTheChild_data()
    {
        QTest::addColumn<Script>("before"); // what the tool does before it says that it is ready
        QTest::addColumn<Script>("after");
        QTest::addColumn<bool>("dies");

        const Script nothing = [](Scenario &) {};
        const Script sleeps = [](Scenario &s) { s.sleeps(60s); };
        QTest::newRow("sleeping: ends") << nothing << sleeps << true;
        QTest::newRow("ignoring the request: left alone, folder gone")
            << Script([](Scenario &s) { s.ignoresTermination(); }) << sleeps << false;
        QTest::newRow("ignoring the request and making files: folder gone")
            << Script([](Scenario &s) { s.ignoresTermination(); })
            << Script([](Scenario &s) { s.litters(60s); }) << false;
    }

    void stopsTheChild()
    {
        QFETCH(const Script, before);
        QFETCH(const Script, after);
        QFETCH(const bool, dies);
        play([&](Scenario &scenario) {
            before(scenario);
            scenario.touches(file(u"ready"_s));
            after(scenario);
        });
        RunHooks hooks;
        int asked = 0;
        hooks.cancelled = [&] { return isThere(u"ready"_s) && ++asked >= 3; };
        Error error;
        QVERIFY(!run({}, hooks, &error));
        QCOMPARE(error.message, kCancelled);
        QCOMPARE(m_tmpdir->leftovers(), QStringList());
        if (dies)
            QTRY_VERIFY(!isAnythingAlive());
        else
            QVERIFY(isAnythingAlive());
    }

    void tellsCancellationFromTimeLimit_data()
    {
        QTest::addColumn<double>("seconds");
        // To "cancelled?", the last one again and again; empty: nobody is asked.
        QTest::addColumn<QList<bool>>("answers");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("mostTicks");

        using Answers = QList<bool>;
        const QString cancelled = kCancelled.toString();
        const QString timedOut = kTimedOut.toString();
        QTest::newRow("no time: stopped at the first poll") << 0.0 << Answers{} << timedOut << 0;
        QTest::newRow("less than no time") << -5.0 << Answers{false} << timedOut << 0;
        QTest::newRow("limit between two polls") << 0.05 << Answers{} << timedOut << 1;
        QTest::newRow("cancelled at once") << 1e300 << Answers{true} << cancelled << 0;
        QTest::newRow("both: cancelled") << 0.0 << Answers{true} << cancelled << 0;
        QTest::newRow("cancelled just after the limit: cancelled")
            << 0.0 << Answers{false, true} << cancelled << 0;
    }

    void tellsCancellationFromTimeLimit()
    {
        QFETCH(const double, seconds);
        QFETCH(QList<bool>, answers);
        tool().sleeps(60s);
        int ticks = 0;
        RunHooks hooks;
        hooks.tick = [&] { ++ticks; };
        if (!answers.isEmpty())
            hooks.cancelled = [&] { return answers.size() > 1 ? answers.takeFirst() : answers.first(); };
        Error error;
        QVERIFY(!run({}, hooks, &error, RunTimeout(seconds)));
        QTEST(error.message, "message");
        QFETCH(const int, mostTicks);
        QCOMPARE_LE(ticks, mostTicks);
    }

    void leavesNothingWhenACallbackThrows()
    {
        tool().touches(file(u"ready"_s)).sleeps(60s);
        RunHooks hooks;
        hooks.tick = [&] {
            if (isThere(u"ready"_s))
                throw std::runtime_error("callback");
        };
        QVERIFY_EXCEPTION_THROWN(run({}, hooks), std::runtime_error);
        QTRY_VERIFY(!isAnythingAlive());
    }

    void boundsTheOutput_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("as much as is allowed: read")
            << Script([](Scenario &s) { s.floods(1000).floodsError(1000); }) << true;
        QTest::newRow("one byte more: refused") << Script([](Scenario &s) { s.floods(1001); }) << false;
        QTest::newRow("one byte more of errors: refused")
            << Script([](Scenario &s) { s.floodsError(1001); }) << false;
    }

    void boundsTheOutput()
    {
        QFETCH(const Script, script);
        QFETCH(const bool, accepted);
        play(script);
        RunLimits limits;
        limits.output = 1000;
        Error error;
        const auto result = run({}, {}, &error, kAmple, limits);
        QCOMPARE(result.has_value(), accepted);
        QCOMPARE(error.message, accepted ? QString() : kTooMuch.toString());
        if (accepted)
            QCOMPARE(result->out, QString(1000, u'x'));
    }

    // Sleeping between polls would make every run last a whole period after a tick, however fast the machine;
    // it is enough that one does not, however slow the machine.
    void noticesTheEndAtOnce()
    {
        constexpr int kTries = 100;
        using Clock = std::chrono::steady_clock;
        tool().awaits(file(u"go"_s));
        bool atOnce = false;
        for (int i = 0; i < kTries && !atOnce; ++i) {
            QFile::remove(file(u"go"_s));
            std::optional<Clock::time_point> ticked;
            RunHooks hooks;
            hooks.tick = [&] {
                if (!ticked)
                    ticked = Clock::now();
                m_tools->touch(u"go"_s);
            };
            QVERIFY(run({}, hooks) && ticked);
            atOnce = Clock::now() - *ticked < 90ms;
        }
        QVERIFY(atOnce);
    }

    void ticksWhileTheChildRuns()
    {
        tool().awaits(file(u"third tick"_s));
        const auto caller = std::this_thread::get_id();
        int ticks = 0;
        bool elsewhere = false;
        RunHooks hooks;
        hooks.tick = [&] {
            elsewhere |= std::this_thread::get_id() != caller;
            if (++ticks == 3)
                m_tools->touch(u"third tick"_s);
        };
        const auto began = std::chrono::steady_clock::now();
        const auto result = run({}, hooks);
        QVERIFY(result);
        QCOMPARE(result->code, 0);
        QVERIFY(!elsewhere);
        QCOMPARE_GE(std::chrono::steady_clock::now() - began, 200ms); // ten a second, not more
    }

    void runsAtOnceWithoutMixing()
    {
        constexpr int kThreads = 8;
        constexpr int kRuns = 10;
        tool().prints(u"{--word}").printsError(u"{--word}");
        std::atomic<int> right = 0;
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int number = 0; number < kThreads; ++number) {
            threads.emplace_back([&, number] {
                for (int i = 0; i < kRuns; ++i) {
                    const QString word = u"%1-%2"_s.arg(number).arg(i);
                    const auto result = run({u"--word"_s, word});
                    if (result && result->out == word && result->err == word)
                        ++right;
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(right.load(), kThreads * kRuns);
    }

    void leaksNothing()
    {
        tool().when({u"sleep"}).sleeps(60s).when({}).prints(u"x").exits(1);
        QVERIFY(run());
        QTRY_COMPARE(OwnChildren(), QList<pid_t>());
        const qsizetype descriptors = OwnDescriptorCount();
        const qsizetype threads = OwnThreadCount();
        for (int i = 0; i < 200; ++i) {
            QVERIFY(run());
            if (i % 10 == 0) {
                QVERIFY(!run({u"sleep"_s}, {}, nullptr, 0s));
                QVERIFY(!ZarvoCommand(m_tools->toolPath(u"missing"_s), {}, kAmple));
            }
        }
        QTRY_COMPARE(OwnChildren(), QList<pid_t>());
        QTRY_VERIFY(OwnThreadCount() <= threads); // the first run's thread may have been on its way out
        QCOMPARE(OwnDescriptorCount(), descriptors);
    }
};

QTEST_GUILESS_MAIN(ToolRunnerTest)
#include "tst_tool_runner.moc"
