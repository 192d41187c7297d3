// Publishing while another process works on the same name. Everything that process makes has a number and is
// whole before it is counted, and it never deletes: what it takes away it keeps. So every one of its files
// must be somewhere in the end.
#include "core/file_descriptor.h"
#include "core/private_folder.h"
#include "ipa/ipa_publishing.h"
#include "ipa_writer.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace fs = std::filesystem;

namespace {

constexpr int kSample = 200; // rounds in the usual run; ZARVO_ROUNDS for more
constexpr int kMostDeeds = 60;
constexpr auto kLongestPause = 12ms; // as long as looking at an earlier copy takes
constexpr const char *kName = "Банк 1.0.ipa";
const IPAInfo kInfo{u"com.example.app"_s, u"1.0"_s};

/// What the file system offers us; the other process always has everything.
enum Offer { Everything, NoExchange, NoLinksEither };
std::atomic<Offer> offer = Everything;

/// What both processes see.
struct Board
{
    std::atomic<int> round; // that may begin
    std::atomic<int> ready; // that the rival has prepared
    std::atomic<int> published;
    std::atomic<int> resting; // that the rival has finished
    std::atomic<int> made;    // files of the rival so far
};
static_assert(std::atomic<int>::is_always_lock_free);

Board *openBoard(const fs::path &folder)
{
    const FileDescriptor file(::open((folder / "board").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file.isOpen() || ::ftruncate(file.get(), sizeof(Board)) != 0)
        return nullptr;
    void *const memory = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Board *>(memory);
}

void waitFor(const std::atomic<int> &mark, int round)
{
    while (mark < round)
        std::this_thread::yield();
}

std::string contents(const fs::path &file)
{
    if (fs::is_symlink(file))
        return fs::read_symlink(file).string();
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The archive with a comment of its own: the same app, other bytes.
std::string stamped(const fs::path &folder, char kind, int number)
{
    static const std::string archive = contents(folder / "archive");
    const std::string stamp = kind + std::to_string(number);
    std::string bytes = archive;
    bytes[bytes.size() - 2] = static_cast<char>(stamp.size());
    return bytes + stamp;
}

enum Kind { Foreign, Link, EarlierCopy };

Kind kindOf(int number, Offer offered)
{
    const int draw = static_cast<int>(std::minstd_rand(static_cast<unsigned>(number) * 7919 + 1)() % 8);
    return draw < 4 ? Foreign : draw == 4 || offered != Everything ? Link : EarlierCopy;
}

std::string bytesOf(const fs::path &folder, int number, Offer offered)
{
    return kindOf(number, offered) == EarlierCopy ? stamped(folder, 'c', number)
                                                  : "foreign " + std::to_string(number);
}

class Rival
{
public:
    Rival(fs::path folder, Offer offered)
        : m_folder(std::move(folder))
        , m_name(m_folder / "out" / kName)
        , m_board(openBoard(m_folder))
        , m_offered(offered)
    {
    }

    [[noreturn]] void run()
    {
        for (int round = 1;; ++round) {
            waitFor(m_board->round, round);
            m_random.seed(static_cast<unsigned>(round));
            if (m_random() % 2 == 0)
                act();
            m_board->ready = round;
            // Now hurried, now slow: its deeds fall between any two of ours.
            const double hurry = std::uniform_real_distribution(0.0, 1.0)(m_random);
            for (int deed = 0; deed < kMostDeeds && m_board->published < round; ++deed) {
                const auto pause = std::uniform_real_distribution(0.0, 1.0)(m_random) * hurry * hurry * hurry;
                const auto until = Clock::now() + pause * kLongestPause;
                while (Clock::now() < until && m_board->published < round)
                    std::this_thread::yield();
                act();
            }
            waitFor(m_board->published, round);
            m_board->resting = round;
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    static bool rename(const fs::path &from, const fs::path &to, unsigned flags)
    {
        return ::syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0;
    }

    fs::path keep(int number) const { return m_folder / "own" / std::to_string(number); }

    int make()
    {
        const int number = m_board->made;
        const std::string bytes = bytesOf(m_folder, number, m_offered);
        if (kindOf(number, m_offered) == Link)
            fs::create_symlink(bytes, keep(number));
        else
            std::ofstream(keep(number), std::ios::binary) << bytes;
        ++m_board->made;
        return number;
    }

    bool createInPlace()
    {
        const int number = m_board->made;
        const FileDescriptor file(::open(m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!file.isOpen() || kindOf(number, m_offered) == Link)
            return file.isOpen() && ::unlink(m_name.c_str()) == 0;
        const std::string bytes = bytesOf(m_folder, number, m_offered);
        const bool isWhole = ::write(file.get(), bytes.data(), bytes.size()) == ssize_t(bytes.size());
        ++m_board->made;
        return isWhole;
    }

    // Where names cannot be exchanged, whoever replaces or takes away can still slip between a look and a
    // rename; then the rival only takes names that are free.
    void act()
    {
        const bool onlyFreeNames = m_offered == NoLinksEither;
        switch (m_random() % 5) {
        case 0:
            if (!onlyFreeNames) {
                rename(m_name, m_folder / "own" / ("taken" + std::to_string(m_taken++)), RENAME_NOREPLACE);
                return;
            }
            [[fallthrough]];
        case 1:
            if (!onlyFreeNames) {
                rename(keep(make()), m_name, RENAME_EXCHANGE);
                return;
            }
            [[fallthrough]];
        case 2:
            (void)!::link(keep(make()).c_str(), m_name.c_str());
            return;
        case 3:
            rename(keep(make()), m_name, RENAME_NOREPLACE);
            return;
        default:
            createInPlace();
        }
    }

    fs::path m_folder;
    fs::path m_name;
    Board *m_board;
    Offer m_offered;
    std::minstd_rand m_random;
    int m_taken = 0;
};

} // namespace

// These take the place of the C library's for this program.
extern "C" int renameat2(int from, const char *source, int to, const char *destination,
                         unsigned flags) noexcept
{
    errno = EINVAL;
    return offer == Everything
               ? static_cast<int>(::syscall(SYS_renameat2, from, source, to, destination, flags))
               : -1;
}

extern "C" int linkat(int from, const char *source, int to, const char *destination, int flags) noexcept
{
    errno = EPERM;
    return offer == NoLinksEither
               ? -1
               : static_cast<int>(::syscall(SYS_linkat, from, source, to, destination, flags));
}

class PublishingRacesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void losesNothing_data();
    void losesNothing();

private:
    QString publish(int round);
    QString wrong(int round, int firstMade, Offer offered, const QString &outcome);

    QTemporaryDir m_folder{QDir::tempPath() + u"/zarvo-race-XXXXXX"_s};
    const fs::path m_root{m_folder.path().toStdString()};
    Board *const m_board = openBoard(m_root);
    std::map<QString, int> m_outcomes;
    int m_replaced = 0;
};

void PublishingRacesTest::losesNothing_data()
{
    QTest::addColumn<Offer>("offered");
    QTest::newRow("names can be exchanged") << Everything;
    QTest::newRow("links, but no exchange: nothing to replace") << NoExchange;
    QTest::newRow("neither: against whoever takes free names") << NoLinksEither;
}

void PublishingRacesTest::losesNothing()
{
    QFETCH(const Offer, offered);
    QVERIFY(writeIPA(m_root / "archive", {}));
    QVERIFY(m_board);
    new (m_board) Board{};
    QProcess rival;
    rival.setProcessChannelMode(QProcess::ForwardedChannels);
    fs::create_directories(m_root / "out");
    fs::create_directories(m_root / "own");
    rival.start(QCoreApplication::applicationFilePath(),
                {u"--rival"_s, m_folder.path(), QString::number(offered)});
    QVERIFY(rival.waitForStarted());
    const auto end = qScopeGuard([&] {
        rival.kill();
        rival.waitForFinished();
    });

    offer = offered;
    m_outcomes.clear();
    m_replaced = 0;
    const int rounds = std::max(kSample, qEnvironmentVariableIntValue("ZARVO_ROUNDS"));
    for (int round = 1; round <= rounds; ++round) {
        const int firstMade = m_board->made;
        m_board->round = round;
        waitFor(m_board->ready, round);
        const QString outcome = publish(round);
        m_board->published = round;
        waitFor(m_board->resting, round);
        QCOMPARE(wrong(round, firstMade, offered, outcome), QString());
        ++m_outcomes[outcome];
        for (const char *folder : {"out", "own"}) {
            fs::remove_all(m_root / folder);
            fs::create_directory(m_root / folder);
        }
    }
    offer = Everything;
    qInfo("%d rounds, %d files of the other process: none lost or changed, %d earlier copies replaced",
          rounds, m_board->made.load(), m_replaced);
    for (const auto &[sentence, times] : m_outcomes)
        qInfo("%6d × %s", times, sentence.isEmpty() ? "published" : qPrintable(sentence));
}

// As a download does it; returns the sentence that says why not.
QString PublishingRacesTest::publish(int round)
{
    const auto folder = PrivateFolder::create(m_folder.filePath(u"out"_s), u".zarvo-"_s);
    if (!folder)
        return u"no private folder"_s;
    const fs::path source(folder->filePath(u"download.ipa"_s).toStdString());
    std::ofstream(source, std::ios::binary) << stamped(m_root, 'o', round);
    Error error;
    if (ZarvoPublishIPA(source, m_root / "out" / kName, kInfo, &error))
        return error.message;
    return contents(source) == stamped(m_root, 'o', round) ? error.message : u"our own file has changed"_s;
}

// What has been lost or cut, in words.
QString PublishingRacesTest::wrong(int round, int firstMade, Offer offered, const QString &outcome)
{
    static const QStringList sentences{
        u"В выбранной папке уже есть ссылка с таким именем. Выберите другую папку."_s,
        u"В выбранной папке уже есть другой файл с таким именем. Он сохранён без изменений. Выберите другую "
        "папку."_s,
        u"Не удалось заменить ранее сохранённый IPA."_s,
        u"Не удалось сохранить «Банк 1.0.ipa»: Файл существует."_s};
    const bool published = outcome.isEmpty();
    if (!published && !sentences.contains(outcome))
        return outcome;
    std::map<std::string, int> found;
    for (const char *folder : {"out", "own"}) {
        for (const auto &entry : fs::recursive_directory_iterator(m_root / folder)) {
            if (entry.is_symlink() || entry.is_regular_file())
                ++found[contents(entry.path())];
        }
    }
    const auto take = [&](const std::string &bytes) { return found.erase(bytes) > 0; };
    if (take(stamped(m_root, 'o', round)) != published)
        return published ? u"ours is nowhere"_s : u"ours has been left"_s;
    int copiesGone = 0;
    for (int number = firstMade; number < m_board->made; ++number) {
        if (take(bytesOf(m_root, number, offered)))
            continue;
        if (kindOf(number, offered) != EarlierCopy)
            return u"file %1 is lost"_s.arg(number);
        ++copiesGone;
    }
    if (copiesGone > (published ? 1 : 0))
        return u"%1 earlier copies are lost"_s.arg(copiesGone);
    m_replaced += copiesGone;
    return found.empty() ? QString() : u"%1 files are cut"_s.arg(found.size());
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--rival"_L1) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        Rival(arguments.value(2).toStdString(), static_cast<Offer>(arguments.value(3).toInt())).run();
    }
    qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number(INT_MAX)); // ten thousand rounds take their time
    PublishingRacesTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_publishing_races.moc"
