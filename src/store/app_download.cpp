#include "store/app_download.h"

#include "core/ipa_file_naming.h"
#include "core/private_folder.h"
#include "core/shown_text.h"
#include "core/tool_output.h"
#include "ipa/ipa_publishing.h"
#include "ipa/ipa_validation.h"
#include "store/purchase_lookup.h"
#include "store/store_failure_messages.h"
#include "store/store_tool_client.h"

#include <QDir>
#include <QFile>
#include <QLocale>

#include <algorithm>
#include <filesystem>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr RunTimeout kDownloadTimeout{1200};
constexpr auto kProgressPeriod = 1s; // walking a folder ten times a second would be felt

std::filesystem::path toPath(const QString &file)
{
    return QFile::encodeName(file).toStdString();
}

bool isEmptyFolder(const QString &folder)
{
    std::error_code unreadable;
    return std::filesystem::is_empty(toPath(folder), unreadable);
}

// The tool saves into `file` in the private `folder`.
bool fetch(Job &job, const AppRow &row, const QString &numericID, const QString &folder, const QString &file,
           bool exact, Error *error)
{
    QString identifier = numericID;
    if (identifier.isEmpty()) {
        const auto found = purchaseID(job, row, error);
        if (!found)
            return false;
        identifier = *found;
    }
    job.setStatus(u"Загрузка: %1"_s.arg(ShownName(row.name)));
    const auto start = Clock::now();
    auto lastReport = Clock::time_point::min();
    bool hasSaved = false;
    const auto progress = [&] {
        const auto now = Clock::now();
        if (lastReport != Clock::time_point::min() && now - lastReport < kProgressPeriod)
            return;
        lastReport = now;
        hasSaved = hasSaved || !isEmptyFolder(folder);
        job.setTransfer(
            ProgressText(FolderSize(folder), std::chrono::duration_cast<std::chrono::seconds>(now - start)));
    };
    Error failure;
    if (store(job, DownloadArguments(row, identifier, file, exact), kDownloadTimeout, progress, &failure))
        return true;
    // A download shows that it is alive by what it saves.
    if (failure.kind == Error::Kind::TimedOut || failure.kind == Error::Kind::Mute)
        failure.advice = hasSaved || !isEmptyFolder(folder) ? QString() : MuteToolAdvice();
    return Fail(error, failure);
}

} // namespace

QStringList DownloadArguments(const AppRow &row, const QString &identifier, const QString &output, bool exact)
{
    QStringList arguments{u"download"_s, u"--output"_s, output, u"--platform"_s, u"iphone"_s};
    if (IntegerValue(identifier) < 1)
        arguments << u"--bundle-identifier"_s << row.id;
    else
        arguments << u"--app-id"_s << identifier;
    if (exact && IntegerValue(row.storeVersionID) > 0)
        arguments << u"--external-version-id"_s << row.storeVersionID;
    return arguments;
}

bool IsWantedVersion(const AppRow &row, const QString &version, bool exact)
{
    return !exact || row.storeVersionID.isEmpty() || version == row.version;
}

std::optional<QString> TypedStoreID(const QString &text)
{
    QString typed = text.trimmed();
    const bool digits =
        std::all_of(typed.begin(), typed.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
    if (!typed.isEmpty() && (!digits || IntegerValue(typed) < 1))
        return std::nullopt;
    return typed;
}

qint64 FolderSize(const QString &folder)
{
    namespace fs = std::filesystem;
    std::error_code failure;
    qint64 total = 0;
    fs::recursive_directory_iterator item(toPath(folder), fs::directory_options::skip_permission_denied,
                                          failure);
    for (; !failure && item != fs::recursive_directory_iterator(); item.increment(failure)) {
        std::error_code unreadable; // the tool may rename or remove the file at this very moment
        if (!item->is_symlink(unreadable) && item->is_regular_file(unreadable)) {
            const auto size = item->file_size(unreadable);
            total += unreadable ? 0 : static_cast<qint64>(size);
        }
    }
    return total;
}

QString ProgressText(qint64 bytes, std::chrono::seconds elapsed)
{
    constexpr qint64 kilobyte = 1000;
    constexpr qint64 megabyte = 1'000'000; // below it a fraction would only flicker
    // Qt's word for single bytes knows no numeral ("0 байты").
    const QString size =
        bytes < kilobyte ? u"%1 Б"_s.arg(bytes)
                         : QLocale(QLocale::Russian)
                               .formattedDataSize(bytes, bytes < megabyte ? 0 : 1, QLocale::DataSizeSIFormat);
    return u"Получено %1 • %2 с"_s.arg(size).arg(elapsed.count());
}

std::optional<QString> downloadWorker(Job &job, const AppRow &row, const QString &numericID,
                                      const QString &directory, bool exact, Error *error)
{
    if (job.isCancelled())
        return std::nullopt;
    const auto folder = PrivateFolder::create(directory, u".zarvo-"_s, error);
    if (!folder)
        return std::nullopt;
    const QString file = folder->filePath(u"download.ipa"_s);
    Error failure;
    const bool fetched = fetch(job, row, numericID, folder->path(), file, exact, &failure);
    if (job.isCancelled()) // what a tool says that was asked to end is no reason
        return std::nullopt;
    if (!fetched) {
        Fail(error, failure);
        return std::nullopt;
    }

    job.setStatus(u"Проверка IPA: %1"_s.arg(ShownName(row.name)));
    const auto info = ZarvoValidateIPA(toPath(file), row.id, error);
    if (!info)
        return std::nullopt;
    if (!IsWantedVersion(row, info->version, exact)) {
        Fail(error,
             ZarvoError(
                 u"Apple вернула другую версию. IPA не принят как точная копия установленной версии."_s));
        return std::nullopt;
    }
    if (job.isCancelled())
        return std::nullopt;
    const QString saved = QDir(directory).filePath(ZarvoFilename(row.name, info->version));
    if (!ZarvoPublishIPA(toPath(file), toPath(saved), *info, error))
        return std::nullopt;
    return saved;
}
