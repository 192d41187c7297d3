// Whether a file is an IPA, and of which app. Runs unzip four times for each input; the second opinion is the
// device tool's, which reads archives with a library.
#include "archive_recipe.h"
#include "fuzzing.h"
#include "ipa/ipa_validation.h"
#include "ipa_contents.h"

#include <QDir>
#include <QTemporaryDir>

#include <zip.h>

using namespace Qt::StringLiterals;

namespace {

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

bool opens(const std::filesystem::path &file)
{
    int code = 0;
    zip_t *const archive = zip_open(file.c_str(), ZIP_RDONLY, &code);
    if (archive)
        zip_discard(archive);
    return archive != nullptr;
}

void checkAccepted(const std::filesystem::path &file, const IPAInfo &info)
{
    // The device tool takes no app without an identifier, and its library not every archive that unzip takes.
    if (!info.id.isEmpty() && opens(file)) {
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
    const QString folder = temporaryFolder();
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
