#include "support/rows.h"
#include "tool_fixture.h"

#include <QDirIterator>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr QStringView kCancelled = u"Операция отменена.";
constexpr QStringView kTimedOut = u"Время ожидания истекло. Проверьте подключение и повторите попытку.";

} // namespace

class ToolRunnerTest : public ToolFixture
{
    Q_OBJECT

private Q_SLOTS:
    void reportsHowTheChildEnded_data()
    {
        const Rows<ToolResult, Script> row;
        row("both outputs, apart", {0, u"да\n"_s, u"нет"_s, "да\n"},
            [](Scenario &s) { s.prints(u"да\n").printsError(u"нет"); });
        row("killed: the signal's number", {9, u"a"_s, {}, "a", true},
            [](Scenario &s) { s.prints(u"a").raises(SIGKILL); });
        row("not UTF-8: text empty, bytes kept", {0, {}, {}, "ab\xff"},
            [](Scenario &s) { s.printsBytes("ab\xff"); });
    }

    void reportsHowTheChildEnded()
    {
        const auto &[expected, script] = Row<ToolResult, Script>();
        play(script);
        Error error{u"untouched"_s};
        const auto result = run({}, {}, &error);
        QVERIFY(result);
        QCOMPARE(error.message, u"untouched"_s);
        QCOMPARE(result->code, expected.code);
        QCOMPARE(result->isKilled, expected.isKilled);
        QCOMPARE(result->out, expected.out);
        QCOMPARE(result->err, expected.err);
        QCOMPARE(result->data, expected.data);
    }

    void keepsOutputsPrivate()
    {
        const mode_t before = ::umask(0);
        tool().prints(u"secret").awaits(file(u"seen"_s));
        int seen = 0;
        QFile::Permissions all;
        RunHooks hooks;
        hooks.tick = [&] {
            QDirIterator walk(m_tmpdir->path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                              QDirIterator::Subdirectories);
            for (seen = 0; walk.hasNext(); ++seen)
                all |= QFileInfo(walk.next()).permissions();
            m_tools->touch(u"seen"_s);
        };
        const auto result = run({}, hooks);
        ::umask(before);
        QVERIFY(result && seen >= 3); // the folder and the outputs
        constexpr int others = 0x0077;
        QCOMPARE(all & QFile::Permissions(others), QFile::Permissions());
    }

    void stopsTheChild_data()
    {
        const Rows<bool, Script> row; // whether it ignores the request to end, what it does meanwhile
        row("sleeping: ends", false, [](Scenario &s) { s.sleeps(60s); });
        row("ignoring it and making files: folder gone", true, [](Scenario &s) { s.litters(60s); });
    }

    void stopsTheChild()
    {
        const auto &[ignores, script] = Row<bool, Script>();
        {
            Scenario scenario = tool();
            if (ignores)
                scenario.ignoresTermination();
            script(scenario.touches(file(u"ready"_s)));
        }
        RunHooks hooks;
        int asked = 0;
        hooks.cancelled = [&] { return isThere(u"ready"_s) && ++asked >= 3; };
        Error error;
        QVERIFY(!run({}, hooks, &error));
        QCOMPARE(error.message, kCancelled);
        QCOMPARE(m_tmpdir->leftovers(), QStringList());
        QTRY_COMPARE(isAnythingAlive(), ignores);
    }

    void tellsCancellationFromTimeLimit_data()
    {
        // Seconds; to "cancelled?", the last one again and again (empty: nobody is asked); the most ticks.
        const Rows<double, QList<bool>, QStringView, int> row;
        row("no time: stopped at the first poll", 0.0, {}, kTimedOut, 0);
        row("limit between two polls", 0.05, {}, kTimedOut, 1);
        row("cancelled at once", 1e300, {true}, kCancelled, 0);
        row("cancelled just after the limit: cancelled", 0.0, {false, true}, kCancelled, 0);
    }

    void tellsCancellationFromTimeLimit()
    {
        const auto &[seconds, given, message, mostTicks] = Row<double, QList<bool>, QStringView, int>();
        QList<bool> answers = given;
        tool().sleeps(60s);
        int ticks = 0;
        RunHooks hooks;
        hooks.tick = [&] { ++ticks; };
        if (!answers.isEmpty())
            hooks.cancelled = [&] { return answers.size() > 1 ? answers.takeFirst() : answers.first(); };
        Error error;
        QVERIFY(!run({}, hooks, &error, RunTimeout(seconds)));
        QCOMPARE(error.message, message);
        QCOMPARE_LE(ticks, mostTicks);
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
        int ticks = 0;
        RunHooks hooks;
        hooks.tick = [&] {
            if (++ticks == 3)
                m_tools->touch(u"third tick"_s);
        };
        const auto began = std::chrono::steady_clock::now();
        const auto result = run({}, hooks);
        QVERIFY(result);
        QCOMPARE(result->code, 0);
        QCOMPARE_GE(std::chrono::steady_clock::now() - began, 200ms); // ten a second, not more
    }
};

QTEST_GUILESS_MAIN(ToolRunnerTest)
#include "tst_tool_runner.moc"
