// Property lists of archives, XML and binary, beside a library that writes and reads them.
#include "fuzzing.h"
#include "ipa/property_list.h"

#include <QtEndian>

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

using List = std::unique_ptr<void, void (*)(void *)>;

const QStringList &keys()
{
    static const QStringList all{u"CFBundleIdentifier"_s, u"CFBundleExecutable"_s,
                                 u"CFBundleShortVersionString"_s, u"k"_s, u""_s};
    return all;
}

PropertyTexts textsOf(plist_t list)
{
    PropertyTexts texts;
    for (const QString &key : keys()) {
        const plist_t value = plist_dict_get_item(list, key.toUtf8().constData());
        if (value && plist_get_node_type(value) == PLIST_STRING) {
            std::uint64_t length = 0;
            const char *const bytes = plist_get_string_ptr(value, &length);
            texts.insert(key, QString::fromUtf8(bytes, static_cast<qsizetype>(length)));
        }
    }
    return texts;
}

// The library follows every reference: a list with but one container cannot make it go round or on for ever.
// Its texts end at the first NUL, also those of keys.
bool isPlainBinary(const QByteArray &bytes)
{
    const auto isContainer = [](char byte) { return static_cast<unsigned char>(byte) >= 0xA0; };
    if (!bytes.startsWith("bplist00") || std::count_if(bytes.begin(), bytes.end(), isContainer) != 1)
        return false;
    const auto table = qFromBigEndian<quint64>(bytes.constEnd() - sizeof(quint64)); // below the list's size
    return !bytes.first(static_cast<qsizetype>(table)).contains('\0');
}

QByteArray written(const PropertyTexts &texts, decltype(plist_to_bin) *write)
{
    const List list(plist_new_dict(), plist_free);
    for (auto text = texts.begin(); text != texts.end(); ++text)
        plist_dict_set_item(list.get(), text.key().toUtf8().constData(),
                            plist_new_string(text.value().toUtf8().constData()));
    char *bytes = nullptr;
    std::uint32_t size = 0;
    write(list.get(), &bytes, &size);
    const std::unique_ptr<char, void (*)(void *)> owner(bytes, std::free);
    return {bytes, static_cast<qsizetype>(size)};
}

// What XML cannot hold, or gives back as another character.
bool isPlain(const PropertyTexts &texts)
{
    return std::all_of(texts.begin(), texts.end(), [](const QString &text) {
        return std::none_of(text.begin(), text.end(), [](QChar c) {
            return (c < u' ' && c != u'\n' && c != u'\t') || c == u'\uFFFE' || c == u'\uFFFF';
        });
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes = BytesOf(data, size).toByteArray();
    const auto texts = ReadPropertyTexts(bytes, keys());
    if (!texts)
        return 0;
    for (const QString &text : *texts)
        Require(text.isValidUtf16() && !text.contains(QChar::Null), "a text is whole");
    if (isPlainBinary(bytes)) {
        plist_t read = nullptr;
        plist_from_bin(bytes.constData(), static_cast<std::uint32_t>(bytes.size()), &read);
        const List list(read, plist_free);
        Require(!list || textsOf(list.get()) == *texts, "another reader finds the same texts");
    }
    Require(ReadPropertyTexts(written(*texts, plist_to_bin), keys()) == texts,
            "the texts are the same when they are written as a binary list and read again");
    Require(!isPlain(*texts) || ReadPropertyTexts(written(*texts, plist_to_xml), keys()) == texts,
            "the texts are the same when they are written as XML and read again");
    return 0;
}
