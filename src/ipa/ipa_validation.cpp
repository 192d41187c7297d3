#include "ipa/ipa_validation.h"

#include "core/private_folder.h"
#include "core/tool_runner.h"
#include "ipa/held_file.h"
#include "ipa/property_list.h"

#include <QByteArrayView>
#include <QFile>
#include <QStringDecoder>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <future>
#include <system_error>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr RunTimeout kTestLimit = 300s;
constexpr RunTimeout kListingLimit = 60s;
constexpr RunTimeout kExtractionLimit = 60s;
constexpr auto kReadingLimit = 60s;

// A sound archive passes the test without a word; a damaged one may have a complaint for every entry.
constexpr qint64 kMaxComplaints = qint64{1} << 20;
// Names of more than 100,000 entries. The runner holds the listing as bytes and as text, so this is a third
// of it.
constexpr qint64 kMaxListing = qint64{16} << 20;
// One line, whatever the archive.
constexpr qint64 kMaxTotals = 4096;
// Twenty times the largest Info.plist that was met.
constexpr qint64 kMaxInfo = qint64{4} << 20;

#ifdef Q_OS_MACOS
constexpr const char *kLocale = "LC_ALL=en_US.UTF-8"; // C.UTF-8 came late to macOS
#else
constexpr const char *kLocale = "LC_ALL=C.UTF-8"; // always there
#endif

const QString kIdentifier = u"CFBundleIdentifier"_s;
const QString kExecutable = u"CFBundleExecutable"_s;
const QString kVersion = u"CFBundleShortVersionString"_s;

constexpr QByteArrayView kInfoPrefix = "Payload/";
constexpr QByteArrayView kInfoSuffix = ".app/Info.plist";

Error damaged()
{
    return ZarvoError(u"IPA повреждён или не является ZIP-архивом."_s);
}

Error openingFailed(int number)
{
    return SystemError(u"Не удалось открыть IPA"_s, number);
}

// There is no ordinary file of this name. All other reasons lie with the system and say nothing about the
// file.
bool isNoFile(int number)
{
    constexpr std::array kReasons{ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG, EINVAL};
    return std::find(kReasons.begin(), kReasons.end(), number) != kReasons.end();
}

// A run of unzip that did not come to an opinion: its own words for what is wrong with an archive are 1 to
// 11, 51, 81 and 82. What a limit of ours has ended is a word, too, and so is a file over which unzip
// stumbles.
std::optional<Error> failureOfSystem(const ToolResult &run)
{
    constexpr int kDiskFull = 50;
    constexpr int kInterrupted = 80;
    constexpr int kLastWord = 82; // a program that cannot be loaded ends with 127
    constexpr std::array kOfTheFile{SIGXFSZ, SIGSEGV, SIGABRT, SIGFPE, SIGILL};
    const bool isOfTheFile = std::find(kOfTheFile.begin(), kOfTheFile.end(), run.code) != kOfTheFile.end();
    if (run.isKilled ? !isOfTheFile : run.code == kInterrupted || run.code > kLastWord)
        return ZarvoError(
            u"Проверка IPA прервана системой: возможно, не хватает памяти. Повторите попытку."_s);
    if (!run.isKilled && run.code == kDiskFull)
        return SystemError(u"Не удалось проверить IPA"_s, ENOSPC);
    return std::nullopt;
}

// The archive under a name that holds no pattern, no option and no undecodable byte, and that has no
// neighbour: unzip takes the path for a pattern, and looks for PATH.zip beside a file that it cannot read.
class Archive
{
public:
    static std::optional<Archive> open(const std::filesystem::path &file, Error *error)
    {
        FileDescriptor held = OpenOrdinaryFile(file, Links::Follow);
        if (!held.isOpen()) {
            const int number = errno;
            Fail(error, isNoFile(number) ? damaged() : openingFailed(number));
            return std::nullopt;
        }
        auto folder = PrivateFolder::createTemporary(error);
        if (!folder)
            return std::nullopt;
        Archive archive(std::move(held), std::move(*folder));
        std::error_code failure;
        // All three runs see the same file, also when another gets its name meanwhile.
        const auto pinned = PathOfHeldFile(archive.m_held);
        const auto target = pinned ? *pinned : std::filesystem::absolute(file, failure);
        if (!failure)
            std::filesystem::create_symlink(target, QFile::encodeName(archive.path()).toStdString(), failure);
        if (failure) {
            Fail(error, openingFailed(failure.value()));
            return std::nullopt;
        }
        return archive;
    }

    std::optional<ToolResult> unzip(const QString &option, const QStringList &entries, RunTimeout timeout,
                                    RunLimits limits, Error *error) const
    {
        // Nothing of the user's environment: variables add options, the locale decides how names are printed.
        limits.environment = {kLocale};
        auto run = ZarvoCommand(u"/usr/bin/unzip"_s, QStringList{option, path()} + entries, timeout, {},
                                error, limits);
        const auto failure = run ? failureOfSystem(*run) : std::nullopt;
        if (!failure)
            return run;
        Fail(error, *failure);
        return std::nullopt;
    }

    /// Why the file cannot be read to its end, an errno value; 0 when it can, or when that takes too long to
    /// tell. unzip has the same answer for that and for a damaged archive.
    int readingFailure() const
    {
        constexpr size_t kBlock = size_t{1} << 20;
        const auto end = std::chrono::steady_clock::now() + kReadingLimit;
        std::vector<char> block(kBlock);
        for (off_t offset = 0; std::chrono::steady_clock::now() < end;) {
            const ssize_t got = ::pread(m_held.get(), block.data(), block.size(), offset);
            if (got == 0 || (got < 0 && errno != EINTR))
                return got == 0 ? 0 : errno;
            offset += std::max<ssize_t>(got, 0);
        }
        return 0;
    }

private:
    Archive(FileDescriptor held, PrivateFolder folder)
        : m_held(std::move(held))
        , m_folder(std::move(folder))
    {
    }

    QString path() const { return m_folder.filePath(u"ipa"_s); }

    FileDescriptor m_held;
    PrivateFolder m_folder;
};

bool testIntegrity(const Archive &archive, Error *error)
{
    RunLimits limits;
    // The system ends a child that complains beyond it: a failure like any other.
    limits.fileSize = kMaxComplaints;
    const auto run = archive.unzip(u"-tqq"_s, {}, kTestLimit, limits, error);
    if (!run)
        return false;
    if (run->code == 0)
        return true;
    if (const int number = archive.readingFailure())
        return Fail(error, SystemError(u"Не удалось прочитать IPA"_s, number));
    return Fail(error, damaged());
}

std::optional<QByteArray> listEntries(const Archive &archive, Error *error)
{
    // Not a limit of what it writes: half a listing could hide a second app.
    RunLimits limits;
    limits.output = kMaxListing;
    limits.outputExceeded =
        u"В IPA слишком много файлов: их список длиннее 16 МБ. Такой архив не принимается."_s;
    auto run = archive.unzip(u"-Z1"_s, {}, kListingLimit, limits, error);
    if (!run)
        return std::nullopt;
    return std::move(run->data);
}

// The number in "1 file, 12 bytes uncompressed, …" or "3002 files, …".
std::optional<qsizetype> entriesInTotals(const QByteArray &totals)
{
    const qsizetype end = totals.indexOf(" file");
    bool isNumber = false;
    const qlonglong count = totals.left(std::max<qsizetype>(end, 0)).toLongLong(&isNumber);
    if (!isNumber || !totals.endsWith('\n'))
        return std::nullopt;
    return count;
}

struct Count
{
    std::optional<qsizetype> entries;
    std::optional<Error> notRun; // why there was no answer at all
};

Count countEntries(const Archive &archive)
{
    RunLimits limits;
    limits.output = kMaxTotals;
    Error error;
    const auto run = archive.unzip(u"-Zt"_s, {}, kListingLimit, limits, &error);
    if (!run)
        return {std::nullopt, error};
    return {entriesInTotals(run->data), std::nullopt};
}

// Takes a moment of its own, so it goes on beside the test of integrity; where no thread is to be had, it
// waits until it is asked for.
std::future<Count> startCounting(const Archive &archive)
{
    try {
        return std::async(std::launch::async, countEntries, std::cref(archive));
    } catch (const std::system_error &) {
        return std::async(std::launch::deferred, countEntries, std::cref(archive));
    }
}

// A full disk or a file size limit that this process was started with cuts the listing off, of which unzip
// says nothing. Its totals are counted while it reads the archive, so they tell how many lines there must be.
bool isComplete(const QByteArray &listing, const Count &count, Error *error)
{
    if (count.notRun)
        return Fail(error, *count.notRun);
    return (count.entries && listing.endsWith('\n') && listing.count('\n') == *count.entries) ||
           Fail(error,
                ZarvoError(u"Не удалось получить полный список файлов IPA. Освободите место на диске и "
                           "повторите попытку."_s));
}

// Takes the first line off `listing`. Lines are compared as bytes: one name that is not UTF-8 must not hide
// the rest.
QByteArrayView takeLine(QByteArrayView &listing)
{
    const qsizetype end = listing.indexOf('\n');
    const QByteArrayView line = end < 0 ? listing : listing.first(end);
    listing = end < 0 ? QByteArrayView() : listing.sliced(end + 1);
    return line;
}

// "Payload/[^/]+\.app/Info\.plist", the whole name.
bool isInfo(QByteArrayView name)
{
    if (name.size() <= kInfoPrefix.size() + kInfoSuffix.size() || !name.startsWith(kInfoPrefix) ||
        !name.endsWith(kInfoSuffix))
        return false;
    return !name.sliced(kInfoPrefix.size()).chopped(kInfoSuffix.size()).contains('/');
}

// The name is given to unzip as an argument, which must be text, and which unzip takes for a pattern.
bool isUsableAsPattern(QByteArrayView name)
{
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    const QString text = decoder(name);
    if (decoder.hasError() || name.contains(".."))
        return false;
    constexpr QByteArrayView kSpecial = "*?[\\";
    return std::none_of(name.begin(), name.end(), [&](char c) { return kSpecial.contains(c); });
}

std::optional<QByteArrayView> singleInfo(QByteArrayView listing, Error *error)
{
    std::optional<QByteArrayView> found;
    int count = 0;
    while (!listing.isEmpty()) {
        const QByteArrayView name = takeLine(listing);
        if (isInfo(name)) {
            found = name;
            ++count;
        }
    }
    if (count == 1 && isUsableAsPattern(*found))
        return found;
    Fail(error, ZarvoError(u"В IPA нет единственного корректного пакета приложения."_s));
    return std::nullopt;
}

bool hasEntry(QByteArrayView listing, QByteArrayView wanted)
{
    while (!listing.isEmpty()) {
        if (takeLine(listing) == wanted)
            return true;
    }
    return false;
}

std::optional<PropertyTexts> readInfo(const Archive &archive, QByteArrayView entry, Error *error)
{
    RunLimits limits;
    limits.fileSize = kMaxInfo;
    const auto run = archive.unzip(u"-p"_s, {QString::fromUtf8(entry)}, kExtractionLimit, limits, error);
    if (!run)
        return std::nullopt;
    auto info =
        run->code == 0 ? ReadPropertyTexts(run->data, {kIdentifier, kExecutable, kVersion}) : std::nullopt;
    if (!info)
        Fail(error, ZarvoError(u"В IPA нет корректного Info.plist."_s));
    return info;
}

std::optional<IPAInfo> judge(const PropertyTexts &info, QByteArrayView infoEntry, QByteArrayView listing,
                             const std::optional<QString> &expectedID, Error *error)
{
    const auto fail = [error](const QString &message) {
        Fail(error, ZarvoError(message));
        return std::nullopt;
    };
    const auto id = info.find(kIdentifier);
    const QString executable = info.value(kExecutable);
    if (id == info.end() || executable.isEmpty() || executable.contains(u'/'))
        return fail(u"В IPA нет корректного идентификатора или исполняемого файла."_s);
    const QByteArrayView folder = infoEntry.first(infoEntry.lastIndexOf('/') + 1);
    if (!hasEntry(listing, folder.toByteArray() + executable.toUtf8()))
        return fail(u"В IPA нет исполняемого файла."_s);
    if (expectedID && *expectedID != *id)
        return fail(u"Получен IPA другого приложения. Файл не принят."_s);
    return IPAInfo{*id, info.value(kVersion, u"не указана"_s)};
}

} // namespace

std::optional<IPAInfo> ZarvoValidateIPA(const std::filesystem::path &file,
                                        const std::optional<QString> &expectedID, Error *error)
{
    const auto archive = Archive::open(file, error);
    if (!archive)
        return std::nullopt;
    std::future<Count> count = startCounting(*archive);
    if (!testIntegrity(*archive, error))
        return std::nullopt;
    const auto listing = listEntries(*archive, error);
    if (!listing || !isComplete(*listing, count.get(), error))
        return std::nullopt;
    const auto entry = singleInfo(*listing, error);
    if (!entry)
        return std::nullopt;
    const auto info = readInfo(*archive, *entry, error);
    if (!info)
        return std::nullopt;
    return judge(*info, *entry, *listing, expectedID, error);
}
