#include "support/rows.h"
#include "tool_fixture.h"

#include <QDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

class ChildProcessTest : public ToolFixture
{
    Q_OBJECT

private Q_SLOTS:
    void passesArgumentsAsTheyAre()
    {
        tool().exits(0);
        const QStringList arguments{u""_s,    u"two words"_s,         u"$HOME `id` ; *"_s, u"\"'\\"_s,
                                    u"-rf"_s, u"Привет 🙂"_s, u"line\nbreak"_s};
        QVERIFY(run(arguments));
        QCOMPARE(m_tools->calls(u"tool"_s), QList<QStringList>{arguments});
    }

    void givesTheChildNothingElse()
    {
        const int inheritable = ::open("/dev/zero", O_RDONLY); // as a careless library would open it
        QVERIFY(inheritable > 2);
        ::signal(SIGPIPE, SIG_IGN);
        sigset_t masked;
        sigemptyset(&masked);
        sigaddset(&masked, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &masked, nullptr);
        qputenv("ZARVO_INHERITED", "да");

        tool().promptsOnTerminal(u"password: ");
        const auto result = run();
        ::close(inheritable);
        ::signal(SIGPIPE, SIG_DFL);
        ::pthread_sigmask(SIG_UNBLOCK, &masked, nullptr);
        QVERIFY(result);

        const QJsonObject call = events(u"call").value(0);
        QCOMPARE(call.value("descriptors"_L1).toObject().keys(), QStringList({u"0"_s, u"1"_s, u"2"_s}));
        QVERIFY(call.value("nullInput"_L1).toBool());
        QCOMPARE(call.value("session"_L1), call.value("pid"_L1));
        QCOMPARE(call.value("parent"_L1).toInt(), ::getpid());
        QCOMPARE(call.value("ignored"_L1).toArray(), QJsonArray());
        QCOMPARE(call.value("blocked"_L1).toArray(), QJsonArray());
        QCOMPARE(call.value("folder"_L1).toString(), QDir::currentPath());
        QVERIFY(call.value("environment"_L1).toArray().contains(u"ZARVO_INHERITED=да"_s));
        const auto rights = ZarvoCommand(u"/bin/grep"_s, {u"NoNewPrivs"_s, u"/proc/self/status"_s}, kAmple);
        QVERIFY(rights && rights->out.endsWith(u"\t1\n"));
        const auto prompts = events(u"terminal");
        QCOMPARE(prompts.size(), 1);
        QVERIFY(!prompts.first().value("opened"_L1).toBool(true));
    }

    void refusesWhatCannotBeStarted_data()
    {
        const Rows<QByteArray, mode_t, QString, QString>
            row; // content (none: no file), mode, argument; reason
        const QString denied =
            u"файл %1/odd не разрешено выполнять. Разрешите это в свойствах файла и повторите"_s;
        const QString foreign =
            u"файл %1/odd не подходит для этого компьютера. Замените его сборкой для этой "
            "системы и этого процессора"_s;
        row("missing", {}, 0700, {},
            u"программы нет в папке %1. Установите её, как описано в инструкции Zarvo, и повторите"_s);
        row("not executable", "#!/bin/sh\n", 0600, {}, denied);
        row("interpreter missing", "#!/no/such\n", 0700, {}, foreign);
        row("an argument that would be cut", "#!/bin/sh\n", 0700, u"a"_s + QChar::Null + u"b"_s,
            u"Недопустимый аргумент"_s);
    }

    void refusesWhatCannotBeStarted()
    {
        const auto &[content, mode, argument, reason] = Row<QByteArray, mode_t, QString, QString>();
        const QString program = m_tools->toolPath(u"odd"_s);
        if (!content.isEmpty()) {
            QFile written(program);
            QVERIFY(written.open(QIODevice::WriteOnly) && written.write(content) > 0);
            QCOMPARE(::fchmod(written.handle(), mode), 0);
        }
        bool started = false;
        RunHooks hooks;
        hooks.started = [&](const auto &) { started = true; };
        Error error;
        QVERIFY(!ZarvoCommand(program, {argument}, kAmple, hooks, &error));
        QCOMPARE(error.message, u"Не удалось запустить «odd»: "_s +
                                    QString(reason).replace(u"%1"_s, QFileInfo(program).path()) + u'.');
        QVERIFY(!started);
        QVERIFY(!ZarvoCommand(program, {argument}, kAmple)); // the reason is not asked for
    }

    void endsWhenAnotherThreadTerminatesIt()
    {
        tool().sleeps(60s);
        const auto caller = std::this_thread::get_id();
        for (int i = 0; i < 20; ++i) {
            std::thread other;
            int started = 0;
            RunHooks hooks;
            hooks.started = [&](const std::shared_ptr<ChildProcess> &child) {
                started += std::this_thread::get_id() == caller ? 1 : 100;
                other = std::thread([child] {
                    do { // goes on into the moment at which the child is reaped
                        child->terminate();
                    } while (child->isRunning());
                });
            };
            const auto result = run({}, hooks);
            other.join();
            QVERIFY(result);
            QCOMPARE(result->code, SIGTERM);
            QCOMPARE(started, 1);
        }
    }

    // Ignored, as inherited from a careless launcher; or with a handler, and no statuses kept.
    void keepsStatusWhenChildSignalIsIgnored()
    {
        tool().exits(3);
        for (const int flags : {0, SA_NOCLDWAIT}) {
            struct sigaction before = {};
            struct sigaction careless = {};
            careless.sa_flags = flags;
            careless.sa_handler = flags == 0 ? SIG_IGN : [](int) {};
            QCOMPARE(::sigaction(SIGCHLD, &careless, &before), 0);
            const auto result = run();
            ::sigaction(SIGCHLD, &before, nullptr);
            QVERIFY(result);
            QCOMPARE(result->code, 3);
        }
    }

    // The last of all: it is over then.
    void startsNothingOnTheWayOut()
    {
        tool().ignoresTermination().touches(file(u"ready"_s)).sleeps(60s);
        RunHooks hooks;
        hooks.tick = [&] {
            if (isThere(u"ready"_s))
                ChildProcess::killAll();
        };
        const auto result = run({}, hooks);
        QVERIFY(result);
        QCOMPARE(result->code, SIGKILL);
        QVERIFY(!run());
        QCOMPARE(events(u"call").size(), 1);
    }
};

QTEST_GUILESS_MAIN(ChildProcessTest)
#include "tst_child_process.moc"
