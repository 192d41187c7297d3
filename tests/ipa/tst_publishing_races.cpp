// Publishing while someone else works on the same name: a thread that asks the system directly, as another
// program would. Everything it makes has a number and is whole before it is counted, and it never deletes:
// what it takes away it keeps. So every one of its files must be somewhere in the end.
#include "core/file_descriptor.h"
#include "core/private_folder.h"
#include "ipa/ipa_fixture.h"
#include "ipa/ipa_publishing.h"
#include "support/rows.h"

#include <QScopeGuard>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int kSample = 200; // rounds in the usual run; ZARVO_ROUNDS for more
constexpr int kMostDeeds = 60;
constexpr auto kLongestPause = 12ms; // as long as looking at an earlier copy takes
constexpr auto kLongestHesitation = 1000us;
constexpr const char *kName = "Банк 1.0.ipa";
const IPAInfo kInfo{u"com.example.app"_s, u"1.0"_s};

/// What the file system offers us; the rival always has everything.
enum Offer { Everything, NoExchange, NoLinksEither };
std::atomic<Offer> offer = Everything;

enum Kind { Foreign, Link, EarlierCopy };

/// What both sides see.
struct Board
{
    std::atomic<int> round; // that may begin; kNoMore when none will
    std::atomic<int> ready; // that the rival has prepared
    std::atomic<int> published;
    std::atomic<int> resting; // that the rival has finished
    std::atomic<int> moments; // at which our side was about to change names
    std::atomic<int> made;    // files of the rival in this round
    std::array<std::atomic<Kind>, size_t{2} * kMostDeeds> kinds;
} board;
constexpr int kNoMore = INT_MAX;

void waitFor(const std::atomic<int> &mark, int round)
{
    while (mark < round)
        std::this_thread::yield();
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

std::string bytesOf(const fs::path &folder, int number)
{
    return board.kinds[static_cast<size_t>(number)] == EarlierCopy ? stamped(folder, 'c', number)
                                                                   : "foreign " + std::to_string(number);
}

class Rival
{
public:
    Rival(fs::path folder, Offer offered)
        : m_folder(std::move(folder))
        , m_name(m_folder / "out" / kName)
        , m_offered(offered)
    {
    }

    void run()
    {
        for (int round = 1;; ++round) {
            waitFor(board.round, round);
            if (board.round == kNoMore)
                return;
            m_random.seed(static_cast<unsigned>(round));
            const bool lurks = chance() < 0.5;
            if (lurks)
                move(keep(make(m_offered == Everything ? EarlierCopy : Foreign)), m_name, RENAME_NOREPLACE);
            else if (chance() < 0.5)
                act();
            m_calm = std::pow(chance(), 3.0) * kLongestPause;
            board.ready = round;
            for (int deed = 0; deed < kMostDeeds && board.published < round; ++deed) {
                lurks ? waitForMoment(round) : pause(chance() * m_calm, round);
                act();
            }
            waitFor(board.published, round);
            board.resting = round;
        }
    }

private:
    using Pause = std::chrono::duration<double, std::milli>;

    double chance() { return std::uniform_real_distribution(0.0, 1.0)(m_random); }

    static void pause(Pause time, int round)
    {
        const auto until = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < until && board.published < round)
            std::this_thread::yield();
    }

    // Until our side is about to change names, and then some.
    void waitForMoment(int round)
    {
        const int moments = board.moments;
        while (board.moments == moments && board.published < round)
            std::this_thread::yield();
        pause(chance() * kLongestHesitation, round);
    }

    static bool move(const fs::path &from, const fs::path &to, unsigned flags)
    {
        return ::syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0;
    }

    fs::path keep(int number) const { return m_folder / "own" / std::to_string(number); }

    Kind anyKind()
    {
        const double draw = chance();
        return draw < 0.5 ? Foreign : draw < 0.6 || m_offered != Everything ? Link : EarlierCopy;
    }

    int make(Kind kind)
    {
        const int number = board.made;
        board.kinds[static_cast<size_t>(number)] = kind;
        const std::string bytes = bytesOf(m_folder, number);
        if (kind == Link)
            fs::create_symlink(bytes, keep(number));
        else
            std::ofstream(keep(number), std::ios::binary) << bytes;
        ++board.made;
        return number;
    }

    void createInPlace()
    {
        const FileDescriptor file(::open(m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!file.isOpen())
            return;
        const int number = board.made;
        board.kinds[static_cast<size_t>(number)] = Foreign;
        const std::string bytes = bytesOf(m_folder, number);
        if (::write(file.get(), bytes.data(), bytes.size()) == ssize_t(bytes.size()))
            ++board.made;
    }

    // Where names cannot be exchanged, whoever replaces or takes away can still slip between a look and a
    // rename; then the rival only takes names that are free.
    void act()
    {
        const bool mayTake = m_offered != NoLinksEither;
        const auto deed = m_random() % 5;
        if (deed == 0 && mayTake)
            move(m_name, m_folder / "own" / ("taken" + std::to_string(m_taken++)), RENAME_NOREPLACE);
        else if (deed == 1 && mayTake)
            move(keep(make(anyKind())), m_name, RENAME_EXCHANGE);
        else if (deed <= 2)
            (void)!::link(keep(make(anyKind())).c_str(), m_name.c_str());
        else if (deed == 3)
            move(keep(make(anyKind())), m_name, RENAME_NOREPLACE);
        else
            createInPlace();
    }

    fs::path m_folder;
    fs::path m_name;
    Offer m_offered;
    std::minstd_rand m_random;
    Pause m_calm{};
    int m_taken = 0;
};

} // namespace

// These take the place of the C library's for this program. Each hesitates now and then, as any program may
// when the machine is busy: what was looked at before may be another thing by then.
static void hesitate()
{
    static std::minstd_rand random;
    ++board.moments;
    if (random() % 2 == 0)
        std::this_thread::sleep_for(random() % 100 * kLongestHesitation / 100);
}

extern "C" int renameat2(int from, const char *source, int to, const char *destination,
                         unsigned flags) noexcept
{
    hesitate();
    errno = EINVAL;
    return offer == Everything
               ? static_cast<int>(::syscall(SYS_renameat2, from, source, to, destination, flags))
               : -1;
}

extern "C" int rename(const char *source, const char *destination) noexcept
{
    hesitate();
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, source, AT_FDCWD, destination, 0U));
}

extern "C" int linkat(int from, const char *source, int to, const char *destination, int flags) noexcept
{
    hesitate();
    errno = EPERM;
    return offer == NoLinksEither
               ? -1
               : static_cast<int>(::syscall(SYS_linkat, from, source, to, destination, flags));
}

class PublishingRacesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void losesNothing_data()
    {
        const Rows<Offer> row;
        row("names can be exchanged", Everything);
        row("links, but no exchange: nothing to replace", NoExchange);
        row("neither: against whoever takes free names", NoLinksEither);
    }
    void losesNothing();

private:
    QString publish(int round);
    QString wrong(int round, const QString &outcome);

    QTemporaryDir m_folder{QDir::tempPath() + u"/zarvo-race-XXXXXX"_s};
    const fs::path m_root{m_folder.path().toStdString()};
    bool m_isOursTaken = false; // in the moment in which it had the name and something else came out for it
    int m_replaced = 0;
};

void PublishingRacesTest::losesNothing()
{
    const auto &[offered] = Row<Offer>();
    QVERIFY(writeIPA(m_root / "archive", {}));
    for (auto *mark : {&board.round, &board.ready, &board.published, &board.resting})
        *mark = 0;
    offer = offered;
    std::thread rival(&Rival::run, Rival(m_root, offered));
    const auto end = qScopeGuard([&] {
        board.published = board.round = kNoMore;
        rival.join();
    });

    std::map<QString, int> outcomes;
    int made = 0;
    int taken = m_replaced = 0;
    const int rounds = std::max(kSample, qEnvironmentVariableIntValue("ZARVO_ROUNDS"));
    for (int round = 1; round <= rounds; ++round) {
        for (const char *folder : {"out", "own"}) {
            fs::remove_all(m_root / folder);
            fs::create_directory(m_root / folder);
        }
        board.made = 0;
        board.round = round;
        waitFor(board.ready, round);
        const QString outcome = publish(round);
        board.published = round;
        waitFor(board.resting, round);
        QCOMPARE(wrong(round, outcome), QString());
        ++outcomes[outcome];
        made += board.made;
        taken += m_isOursTaken;
    }
    offer = Everything;
    qInfo("%d rounds, %d files of the rival: none lost or changed, %d earlier copies replaced", rounds, made,
          m_replaced);
    if (taken > 0)
        qInfo("%6d × refused, and ours was taken by the rival in between", taken);
    for (const auto &[sentence, times] : outcomes)
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
    m_isOursTaken = false;
    if (ZarvoPublishIPA(source, m_root / "out" / kName, kInfo, &error))
        return error.message;
    m_isOursTaken = contents(source) != stamped(m_root, 'o', round);
    return error.message;
}

// What has been lost or cut, in words.
QString PublishingRacesTest::wrong(int round, const QString &outcome)
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
    if (take(stamped(m_root, 'o', round)) != (published || m_isOursTaken))
        return u"ours is nowhere, or has been left"_s;
    int copiesGone = 0;
    for (int number = 0; number < board.made; ++number) {
        if (take(bytesOf(m_root, number)))
            continue;
        if (board.kinds[static_cast<size_t>(number)] != EarlierCopy)
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
    qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number(INT_MAX)); // ten thousand rounds take their time
    PublishingRacesTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_publishing_races.moc"
