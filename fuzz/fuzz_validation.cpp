// Whether a file is an IPA, and of which app. Runs unzip four times for each input; the second opinion is the
// device tool's, which reads archives with a library.
#include "archive_recipe.h"
#include "fuzzing.h"
#include "ipa/ipa_validation.h"
#include "ipa_contents.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <zip.h>

#include <array>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr QByteArrayView kEndOfDirectory = "PK\5\6";

/// The folder for temporary files, of this fuzzer alone.
const QString &temporaryFolder()
{
    static const QTemporaryDir folder;
    static const QString path = [] {
        qputenv("TMPDIR", folder.path().toLocal8Bit());
        return folder.path();
    }();
    return path;
}

bool isEmpty(const QString &folder)
{
    return QDir(folder).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

/// Whether the library gets all of a member, and no more than it was told.
bool isWhole(zip_t *archive, zip_uint64_t index)
{
    zip_stat_t facts;
    const std::unique_ptr<zip_file_t, int (*)(zip_file_t *)> member(zip_fopen_index(archive, index, 0),
                                                                    zip_fclose);
    if (!member || zip_stat_index(archive, index, 0, &facts) != 0)
        return false;
    std::array<char, 4096> bytes{};
    zip_uint64_t size = 0;
    zip_int64_t count = 0;
    while ((count = zip_fread(member.get(), bytes.data(), bytes.size())) > 0)
        size += static_cast<zip_uint64_t>(count);
    return count == 0 && size == facts.size;
}

/// Whether the device tool's library takes the archive with all its members, and sees the names that unzip
/// sees. For unzip a name ends at a NUL, for the library it goes on with a blank; of several ends of a
/// directory unzip takes the last, the library the first that makes sense; and a member of another size than
/// the directory says is whole for unzip alone. The device tool then finds no app, and says so.
bool isPlain(const std::filesystem::path &path)
{
    int code = 0;
    const std::unique_ptr<zip_t, void (*)(zip_t *)> archive(zip_open(path.c_str(), ZIP_RDONLY, &code),
                                                            zip_discard);
    QFile file(path);
    if (!archive || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray bytes = file.readAll();
    if (bytes.count(kEndOfDirectory) != 1)
        return false;
    const auto count = static_cast<zip_uint64_t>(zip_get_num_entries(archive.get(), 0));
    for (zip_uint64_t i = 0; i < count; ++i) {
        if (!bytes.contains(zip_get_name(archive.get(), i, ZIP_FL_ENC_RAW)) || !isWhole(archive.get(), i))
            return false;
    }
    return true;
}

void checkAccepted(const std::filesystem::path &file, const IPAInfo &info)
{
    // The device tool takes no app without an identifier, and its library not every archive that unzip takes.
    if (!info.id.isEmpty() && isPlain(file)) {
        const auto contents = ReadIPAContents(QString::fromStdString(file.string()));
        Require(contents && contents->bundleID == info.id, "another reader finds the same app");
    }

    Error error;
    Require(ZarvoValidateIPA(file, info.id, &error).has_value() && error.message.isEmpty(),
            "an IPA is accepted as the one that it is");
    Require(!ZarvoValidateIPA(file, info.id + u'x', &error) && !error.message.isEmpty(),
            "an IPA of another app is not accepted");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString &folder = temporaryFolder();
    static const QTemporaryDir archives(folder + u"-archives"_s);
    const std::filesystem::path file = archives.filePath(u"archive.ipa"_s).toStdString();
    Require(WriteArchive(file, BytesOf(data, size)), "the folder for temporary files can be written to");

    Error error;
    const auto info = ZarvoValidateIPA(file, std::nullopt, &error);
    Require(info.has_value() == error.message.isEmpty(), "a file that is not accepted has a reason");
    if (info)
        checkAccepted(file, *info);
    Require(isEmpty(folder), "nothing is left in the folder for temporary files");
    return 0;
}
