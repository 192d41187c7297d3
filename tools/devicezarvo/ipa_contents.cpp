#include "ipa_contents.h"

#include "ipa/property_list.h"

#include <QFile>

#include <zip.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr zip_uint64_t kLargestMember = 8'000'000; // bytes; real ones have a few thousand

struct ZipDeleter
{
    void operator()(zip_t *archive) const { zip_discard(archive); }
    void operator()(zip_file_t *member) const { zip_fclose(member); }
};
using Archive = std::unique_ptr<zip_t, ZipDeleter>;
using Member = std::unique_ptr<zip_file_t, ZipDeleter>;

/// The bytes of a member; empty when it is missing, damaged, encrypted or beyond the bound.
QByteArray memberBytes(zip_t *archive, const QByteArray &name)
{
    zip_stat_t facts;
    zip_stat_init(&facts);
    if (zip_stat(archive, name.constData(), ZIP_FL_ENC_RAW, &facts) != 0 || !(facts.valid & ZIP_STAT_SIZE) ||
        facts.size > kLargestMember)
        return {};
    const Member member(zip_fopen(archive, name.constData(), ZIP_FL_ENC_RAW));
    QByteArray bytes(static_cast<qsizetype>(facts.size), Qt::Uninitialized);
    if (!member || zip_fread(member.get(), bytes.data(), facts.size) != bytes.size())
        return {};
    return bytes;
}

/// "Payload/Name.app/" of the app; empty when there is none.
QByteArray appFolder(zip_t *archive)
{
    const QByteArray payload("Payload/");
    const QByteArray info(".app/Info.plist");
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const QByteArray name(zip_get_name(archive, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW));
        if (name.startsWith(payload) && name.endsWith(info) && name.count('/') == 2)
            return name.chopped(info.size()) + ".app/";
    }
    return {};
}

Archive openArchive(const QString &file, Failure *failure)
{
    int code = 0;
    Archive archive(zip_open(QFile::encodeName(file).constData(), ZIP_RDONLY, &code));
    if (!archive) {
        const bool unreadable = code == ZIP_ER_OPEN || code == ZIP_ER_NOENT || code == ZIP_ER_READ;
        Fail(failure, FailureOf(unreadable ? Fault::UnreadableFile : Fault::BadFile, code));
    }
    return archive;
}

} // namespace

std::optional<IPAContents> ReadIPAContents(const QString &file, Failure *failure)
{
    const Archive archive = openArchive(file, failure);
    if (!archive)
        return std::nullopt;
    const QByteArray folder = appFolder(archive.get());
    // Read as Zarvo itself does: what it has accepted as one app must not be another here, or none.
    const QString identifier = u"CFBundleIdentifier"_s;
    const QString executable = u"CFBundleExecutable"_s;
    const auto info =
        ReadPropertyTexts(memberBytes(archive.get(), folder + "Info.plist"), {identifier, executable})
            .value_or(PropertyTexts());
    IPAContents contents;
    contents.bundleID = info.value(identifier);
    if (folder.isEmpty() || contents.bundleID.isEmpty()) {
        Fail(failure, FailureOf(Fault::BadFile));
        return std::nullopt;
    }
    contents.sinf =
        memberBytes(archive.get(), folder + "SC_Info/" + info.value(executable).toUtf8() + ".sinf");
    contents.metadata = memberBytes(archive.get(), "iTunesMetadata.plist");
    return contents;
}
