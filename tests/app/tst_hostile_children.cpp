// Every way in which a child can misbehave, against everything that starts children.
#include "app/loop_probe.h"
#include "app/window_fixture.h"
#include "signin/sign_in_fixture.h"
#include "support/rows.h"

#include <QFile>
#include <QMimeDatabase>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr auto kAnswersWithin = 500ms; // the same work takes several times as long
#else
constexpr auto kAnswersWithin = 100ms;
#endif
constexpr qint64 kMemoryForFlood = qint64{16} << 20;
constexpr RunTimeout kShort = 200ms; // in place of the limit, once the tool misbehaves
constexpr auto kForever = 300s;

/// How a child ends that misbehaves.
enum Ending { NotByItself, WithoutAnAnswer, OfASignal, OfItsOutput };

struct Behaviour
{
    const char *name;
    Ending ending;
    Rules before = {}; // then the limit of time begins to run
    Rules after = {};
    int left = 0; // processes that nobody promises to end while the program runs
};

const Rules kLeavesGrandchild = [](Scenario &tool) { tool.leavesGrandchild(kForever); };
const Behaviour kBehaviours[] = {
    {"never ends", NotByItself},
    {"ignores SIGTERM", NotByItself, [](Scenario &tool) { tool.ignoresTermination(); }, {}, 1},
    {"stops itself", NotByItself, {}, [](Scenario &tool) { tool.stops(); }},
    {"prints, closes its outputs, goes on", NotByItself,
     [](Scenario &tool) { tool.printsError(u".").closesOutputs(); }},
    {"saves, changes its title, goes on", NotByItself,
     [](Scenario &tool) { tool.touches(u"{--output}").changesTitle(u") Z 1 1 ("); }},
    {"with a grandchild, never ends", NotByItself, kLeavesGrandchild},
    {"leaves a grandchild with its outputs", WithoutAnAnswer, kLeavesGrandchild, {}, 1},
    {"prints for ever", OfItsOutput, [](Scenario &tool) { tool.ignoresTermination(); },
     [](Scenario &tool) { tool.floods(-1); }},
    {"prints errors for ever", OfItsOutput, {}, [](Scenario &tool) { tool.floodsError(-1); }},
    {"prints nothing", WithoutAnAnswer},
    {"prints NULs", WithoutAnAnswer, [](Scenario &tool) { tool.printsBytes(QByteArray(1000, '\0')); }},
    {"prints half a line", WithoutAnAnswer,
     [](Scenario &tool) { tool.prints(u"{\"success\":true,\"apps\":[{\"id"); }},
    {"ends of a signal", OfASignal},
};

constexpr QStringView kNoPhone = u"Подключите iPhone кабелем и выберите его в списке.";
constexpr QStringView kNoApps =
    u"Подключите и разблокируйте iPhone, подтвердите доверие к Mac и выберите устройство заново.";
constexpr QStringView kTimedOut = u"Время ожидания истекло. Проверьте подключение и повторите попытку.";
constexpr QStringView kTooMuch = u"Модуль вывел слишком много данных. Повторите попытку.";
constexpr QStringView kNotConfirmed = u"Вход не подтверждён. Выполните вход в Apple Account.";
constexpr QStringView kNotDownloaded = u"Загрузку выполнить не удалось.\n\nКод модуля: ";
constexpr QStringView kNotInstalled = u"iOS не подтвердила установку.";
constexpr QStringView kDamaged = u"IPA повреждён или не является ZIP-архивом.";
constexpr QStringView kNoList = u"Не удалось получить полный список файлов IPA. ";
constexpr QStringView kLongList =
    u"В IPA слишком много файлов: их список длиннее 16 МБ. Такой архив не принимается.";
constexpr QStringView kKilled =
    u"Проверка IPA прервана системой: возможно, не хватает памяти. Повторите попытку.";
constexpr QStringView kNoInfo = u"В IPA нет корректного Info.plist.";
constexpr QStringView kSaved = u"IPA сохранён: ";
constexpr QStringView kNotSignedIn =
    u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple.";
constexpr QStringView kSignInTimedOut =
    u"Время ожидания входа истекло. Проверьте интернет и повторите попытку.";

using Sentences = std::array<QStringView, 4>; // for each ending
constexpr Sentences always(QStringView sentence)
{
    return {sentence, sentence, sentence, sentence};
}
constexpr Sentences kListing{kTimedOut, kNoList, kKilled, kLongList};
constexpr Sentences kSigningIn{kSignInTimedOut, kNotSignedIn, kNotSignedIn, kSignInTimedOut};

using Beginning = bool (*)(const Program &);
const Beginning kPoll = [](const Program &p) { return p.press("refresh"), true; };
const Beginning kRead = [](const Program &p) { return p.choosePhone(), true; };
const Beginning kCheck = [](const Program &p) { return p.press("checkAccount"), true; };
const Beginning kLookUp = [](const Program &p) { return p.chooseApp(u"заметки"_s) && p.download(); };
const Beginning kDownload = [](const Program &p) { return p.chooseApp(u"Карты"_s) && p.download(); };
const Beginning kInstall = [](const Program &p) {
    return p.chooseIPA(p.mapsIPA) && (p.press("installButton"), p.answerAlert(u"Установить"_s));
};

const QString kPhone = u"devicezarvo"_s;
const QString kStore = u"ipatool"_s;
const QString kUnzip = u"unzip"_s;

struct Caller
{
    const char *name;
    QString tool;
    QStringView word; // in the command lines of the runs that go wrong
    std::chrono::seconds limit;
    Beginning begin; // none: the sign-in
    Sentences sentences;
};

// The poll and the read of the apps make no words of a tool's faults. A purchase that is not found is looked
// for by another name, and a test of integrity says all with its status.
const Caller kCallers[] = {
    {"poll", kPhone, u"devices", 15s, kPoll, always(kNoPhone)},
    {"apps", kPhone, u"apps", 40s, kRead, always(kNoApps)},
    {"account", kStore, u"info", 30s, kCheck, {kTimedOut, kNotConfirmed, kNotDownloaded, kTooMuch}},
    {"purchases", kStore, u"list-purchases", 180s, kLookUp, {kTimedOut, kSaved, kNotDownloaded, kTooMuch}},
    {"download", kStore, u"download", 1200s, kDownload, {kTimedOut, kDamaged, kNotDownloaded, kTooMuch}},
    {"install", kPhone, u"install", 900s, kInstall, {kTimedOut, kNotInstalled, kNotInstalled, kTooMuch}},
    {"unzip -t", kUnzip, u"-tqq", 300s, kDownload, {kTimedOut, kSaved, kKilled, kDamaged}},
    {"unzip -Z1", kUnzip, u"-Z1", 60s, kDownload, kListing},
    {"unzip -Zt", kUnzip, u"-Zt", 60s, kDownload, {kTimedOut, kNoList, kKilled, kTooMuch}},
    {"unzip -p", kUnzip, u"-p", 60s, kDownload, {kTimedOut, kNoInfo, kKilled, kNoInfo}},
    {"sign-in", kStore, u"login", 300s, nullptr, kSigningIn},
    {"its code", kStore, u"code", 300s, nullptr, kSigningIn},
};

/// The signals whose default is to end a process, or some of them: ZARVO_ROUNDS=1 tries all.
QList<int> signalsToTry(const Caller &caller)
{
    if (qEnvironmentVariableIntValue("ZARVO_ROUNDS") == 0)
        return caller.begin ? QList{SIGHUP, SIGKILL, SIGPIPE, SIGTERM} : QList{SIGHUP, SIGKILL};
    const QList<int> harmless{SIGCHLD, SIGCONT, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH};
    QList<int> numbers;
    for (int number = 1; number <= SIGRTMAX; ++number) {
        if (!harmless.contains(number) && (number < 32 || number >= SIGRTMIN))
            numbers.append(number);
    }
    return numbers;
}

/// Which runs go wrong, and what became of them. Set while none of them runs.
struct Spoiled
{
    std::mutex mutex;
    QStringView word;
    bool endsByItself = false;
    QString ready; // there once the tool misbehaves
    QString unzip; // in place of the real one
    std::vector<std::chrono::duration<double>> limits;
    std::atomic<int> ended = 0;
} spoiled;

qint64 peakMemory()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return qint64{usage.ru_maxrss} * 1024;
}

} // namespace

// The linker leads all calls of the runner here (--wrap), so that a limit of twenty minutes can be waited for
// and unzip, which is called by a path of the system, can be played.
#define RUNNER                                                                                               \
    "_Z12ZarvoCommandRK7QStringRK5QListIS_ENSt6chrono8durationIdSt5ratioILl1ELl1EEEERK8RunHooksP5ErrorRK9"   \
    "RunLimits"
std::optional<ToolResult> GivenRunner(const QString &, const QStringList &, RunTimeout, const RunHooks &,
                                      Error *, const RunLimits &) asm("__real_" RUNNER);
std::optional<ToolResult> SpoiledRunner(const QString &, const QStringList &, RunTimeout, const RunHooks &,
                                        Error *, const RunLimits &) asm("__wrap_" RUNNER);

std::optional<ToolResult> SpoiledRunner(const QString &path, const QStringList &arguments, RunTimeout timeout,
                                        const RunHooks &hooks, Error *error, const RunLimits &limits)
{
    std::unique_lock lock(spoiled.mutex);
    if (spoiled.word.isEmpty() || !arguments.contains(spoiled.word))
        return lock.unlock(), GivenRunner(path, arguments, timeout, hooks, error, limits);
    const QString tool = path == "/usr/bin/unzip"_L1 ? spoiled.unzip : path;
    const QString ready = spoiled.ready;
    const RunTimeout given = spoiled.endsByItself ? timeout : kShort;
    spoiled.limits.push_back(timeout);
    lock.unlock();

    RunHooks patient = hooks;
    patient.started = [&](const std::shared_ptr<ChildProcess> &child) {
        if (hooks.started)
            hooks.started(child);
        while (child->isRunning() && !QFile::exists(ready)) // the clock has not begun to run
            std::this_thread::sleep_for(1ms);
    };
    auto result = GivenRunner(tool, arguments, given, patient, error, limits);
    lock.lock();
    ++spoiled.ended;
    return result;
}

class HostileChildrenTest : public QObject
{
    Q_OBJECT

public:
    static LoopProbe &probe() { return *static_cast<LoopProbe *>(qApp); }

private Q_SLOTS:
    void initTestCase()
    {
        QMimeDatabase().mimeTypeForName(u"text/plain"_s); // keeps a file open from the first dialog on
        m_threads = OwnThreadCount();
    }
    void meets_data()
    {
        const Rows<const Behaviour *, const Caller *> row;
        // All callers run their tools in one way: one of them meets everything, the others each way to end,
        // and what is told apart for them by a sign of life.
        for (const Behaviour &behaviour : kBehaviours) {
            const QByteArrayView name(behaviour.name);
            const bool isOfEach = name == "never ends" || name == "prints half a line" ||
                                  name == "ends of a signal" || name == "prints for ever" ||
                                  name.startsWith("prints, ") || name.startsWith("saves, ");
            for (const Caller &caller : kCallers) {
                if (isOfEach || caller.word == u"download")
                    row((QByteArray(caller.name) + ", " + name.data()).constData(), &behaviour, &caller);
            }
        }
    }
    void meets()
    {
        const auto &[behaviour, caller] = Row<const Behaviour *, const Caller *>();
        for (const int signal : behaviour->ending == OfASignal ? signalsToTry(*caller) : QList{0}) {
            // A disk or a machine that stood still for a moment does not do so again in the same event.
            for (int attempt = 0; attempt < 2; ++attempt) {
                caller->begin ? meetInTheWindow(*caller, *behaviour, signal)
                              : meetSigningIn(*caller, *behaviour, signal);
                if (QTest::currentTestFailed())
                    return qWarning("signal %d", signal);
                ++m_runs;
                m_longestOwn = std::max(m_longestOwn, probe().longestOwn);
                m_longest = std::max(m_longest, probe().longest);
                if (probe().longestOwn < kAnswersWithin)
                    break;
                qWarning("signal %d: no answer for %lld ms", signal,
                         static_cast<long long>(probe().longestOwn / 1ms));
            }
            QVERIFY2(probe().longestOwn < kAnswersWithin, "the window did not answer");
        }
    }

    void cleanupTestCase()
    {
        using Milliseconds = std::chrono::duration<double, std::milli>;
        qInfo("%d runs, %lld processes; longest event %.1f ms, by the clock on the wall %.1f ms", m_runs,
              static_cast<long long>(m_children), Milliseconds(m_longestOwn).count(),
              Milliseconds(m_longest).count());
    }

private:
    static void play(Scenario &tool, const Behaviour &behaviour, int signal)
    {
        if (behaviour.before)
            behaviour.before(tool);
        tool.touches(spoiled.ready);
        if (behaviour.after)
            behaviour.after(tool);
        if (signal > 0)
            tool.raises(signal);
        if (behaviour.ending == NotByItself)
            tool.sleeps(kForever);
    }

    static void spoil(Program &program, const Caller &caller, const Behaviour &behaviour, int signal)
    {
        const std::lock_guard lock(spoiled.mutex);
        spoiled.word = caller.word;
        spoiled.endsByItself = behaviour.ending != NotByItself;
        spoiled.ready = program.tools.filePath(u"ready"_s);
        spoiled.unzip = program.tools.toolPath(u"unzip"_s);
        spoiled.limits.clear();
        spoiled.ended = 0;
        const Rules rules = [&](Scenario &tool) { play(tool.when({caller.word}), behaviour, signal); };
        if (Scenario unzip = program.tools.add(kUnzip); caller.tool == kUnzip)
            rules(unzip);
        else
            caller.tool == kStore ? program.playStore(rules) : program.playDevice(rules);
    }

    void meetInTheWindow(const Caller &caller, const Behaviour &behaviour, int signal)
    {
        Program program;
        QVERIFY(caller.word == u"apps" ? program.startWithPhone() : program.startWithApps());
        EVENTUALLY_EQUAL(OwnThreadCount(), m_threads); // also the first poll's
        const qsizetype descriptors = OwnDescriptorCount();
        const qint64 memory = peakMemory();
        spoil(program, caller, behaviour, signal);
        probe().begin(program.find<QLabel>("statusLabel"));
        QVERIFY(caller.begin(program));
        const QStringView sentence = caller.sentences[behaviour.ending];
        EVENTUALLY(spoiled.ended > 0 && probe().hasSaid(sentence) && !program.isBusy());

        // What is asked quietly shows no alert, what succeeds none either; anything else one, with the
        // sentence.
        const bool isQuiet = caller.limit == 15s || caller.limit == 40s || sentence == kSaved;
        EVENTUALLY_EQUAL(program.alert() != nullptr, !isQuiet);
        if (program.alert()) {
            const QStringList texts = program.alertTexts();
            QCOMPARE(texts.value(1), program.status());
            const char *sign = caller.word == u"download" ? "saves" : "prints"; // of life
            const bool isAlive = QByteArrayView(behaviour.name).startsWith(sign);
            const bool isMute = sentence == kTimedOut && caller.tool == u"ipatool" && !isAlive;
            QCOMPARE(texts.value(2).startsWith(u"Если так каждый раз, возможно, эта ipatool ждёт"), isMute);
            QCOMPARE(program.status().count(u'\n'), sentence.contains(u'\n') ? 2 : 0);
            QVERIFY(program.answerAlert(u"Понятно"_s));
        }
        QVERIFY(behaviour.ending != OfItsOutput || peakMemory() - memory < kMemoryForFlood);
        {
            const std::lock_guard lock(spoiled.mutex);
            spoiled.word = {};
            for (const auto limit : spoiled.limits)
                QCOMPARE(limit, caller.limit);
        }
        EVENTUALLY_EQUAL(PrivateFoldersIn(program.temporary.path()) +
                             PrivateFoldersIn(program.destination.path(), u".zarvo-"),
                         QStringList());
        // A chooser that is kept looks after its folder, with a thread and a descriptor.
        const qsizetype choosers = program.window()->findChildren<QFileDialog *>().size();
        checkWhatIsLeft(program.tools, caller, behaviour.left, choosers);
        EVENTUALLY_EQUAL(OwnDescriptorCount(), descriptors + choosers);
    }

    void meetSigningIn(const Caller &caller, const Behaviour &behaviour, int signal)
    {
        SignIn signIn;
        spoiled.ready = signIn.tools.filePath(u"ready"_s);
        {
            Scenario tool = signIn.tools.add(caller.tool);
            if (caller.word == u"code")
                UntilCode(tool).prints(kCodePrompt).awaits(signIn.tools.filePath(u"asked"_s));
            play(tool, behaviour, signal);
        }
        QVERIFY(signIn.open());
        const qsizetype descriptors = OwnDescriptorCount();
        probe().begin(signIn.find<QLabel>("message"));
        QVERIFY(signIn.start());
        if (caller.word == u"code")
            EVENTUALLY_EQUAL(signIn.message(), kEnterCode);
        signIn.tools.touch(u"asked"_s);
        EVENTUALLY(QFile::exists(spoiled.ready));
        const QStringView sentence = caller.sentences[behaviour.ending];
        if (sentence == kSignInTimedOut)
            signIn.now += caller.limit + 1ms;
        EVENTUALLY_EQUAL(signIn.message(), sentence);
        // A tool that has asked for nothing yet may be one that asks in another way.
        const bool isMute = sentence == kSignInTimedOut && caller.word == u"login";
        QCOMPARE(!signIn.find<QLabel>("advice")->isHidden(), isMute);
        QVERIFY(signIn.isEditing());
        EVENTUALLY(signIn.running().isEmpty());
        checkWhatIsLeft(signIn.tools, caller, 0, 0);
        EVENTUALLY_EQUAL(OwnDescriptorCount(), descriptors);
    }

    // Whoever is left by the rules is ended here; then nobody may be, and no thread that watched over them.
    void checkWhatIsLeft(const ScriptedTools &tools, const Caller &caller, int left, qsizetype choosers)
    {
        QList<pid_t> hostile;
        for (const QJsonObject &child :
             tools.events(caller.tool, u"call") + tools.events(caller.tool, u"grandchild"))
            hostile.append(child.value("pid"_L1).toInt());
        const qsizetype spoiledRuns = caller.begin ? static_cast<qsizetype>(spoiled.limits.size()) : 1;
        EVENTUALLY_EQUAL(std::count_if(hostile.begin(), hostile.end(), IsProcessAlive), left * spoiledRuns);
        m_children += hostile.size();
        for (const pid_t pid : hostile) {
            if (left > 0 && IsProcessAlive(pid))
                ::kill(pid, SIGKILL);
        }
        EVENTUALLY_EQUAL(OwnChildren(), QList<pid_t>());
        EVENTUALLY_EQUAL(OwnThreadCount(), m_threads + choosers);
    }

    int m_runs = 0;
    LoopProbe::Time m_longestOwn{};
    LoopProbe::Time m_longest{};
    qsizetype m_children = 0;
    qsizetype m_threads = 0;
};

int main(int argc, char **argv)
{
    Program::isolate();
    LoopProbe application(argc, argv);
    HostileChildrenTest test;
    // Qt's warnings of what its platform cannot do would use up the messages before the figures.
    return QTest::qExec(&test, LoopProbe::arguments() + QStringList{u"-maxwarnings"_s, u"0"_s});
}

#include "tst_hostile_children.moc"
