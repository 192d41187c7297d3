// The name under which an IPA is saved, whatever an app calls itself and its version.
#include "core/ipa_file_naming.h"
#include "fuzzing.h"

#include <QFile>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestName = 180 + 1 + 50 + 4; // bytes
const QString kSuffix = u".ipa"_s;

bool isForbidden(QChar c)
{
    return c.category() == QChar::Other_Control || c.category() == QChar::Other_Format ||
           u"/\\:*?\"<>|"_s.contains(c);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QList<QByteArrayView> parts = PartsOf(BytesOf(data, size), 2);
    const QString name = TextFrom(parts[0]);
    const QString version = TextFrom(parts[1]);
    const QString file = ZarvoFilename(name, version);

    const QByteArray onDisk = QFile::encodeName(file);
    Require(onDisk.size() <= kLongestName, "a name fits in what file systems take");
    Require(std::none_of(file.begin(), file.end(), isForbidden),
            "a name has no separator, no control character and nothing that a file system refuses");
    Require(!u" .-"_s.contains(file.front()), "a name is not hidden, no option, and begins with no blank");
    Require(file.endsWith(kSuffix) && file.size() > kSuffix.size() + 1,
            "a name has its parts and its suffix");
    const auto isOtherBlank = [](QChar c) { return c.isSpace() && c != u' '; };
    Require(std::none_of(file.begin(), file.end(), isOtherBlank) && !file.contains(u"  "_s),
            "a name has single blanks only");
    Require(file.isValidUtf16(), "no character of a name is cut in two");
    Require(QFile::decodeName(onDisk) == file, "a name comes back from the disk as it was");
    Require(ZarvoFilename(name, version) == file, "the same app and version always give the same name");
    return 0;
}
