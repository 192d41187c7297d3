// Property lists of archives, XML and binary.
#include "fuzzing.h"
#include "ipa/property_list.h"

#include <plist/plist.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace {

constexpr std::array kKeys{"CFBundleIdentifier", "CFBundleExecutable", "CFBundleShortVersionString", "k", ""};

QByteArray binaryListWith(const char *key, const QString &value)
{
    const std::unique_ptr<void, void (*)(void *)> list(plist_new_dict(), plist_free);
    plist_dict_set_item(list.get(), key, plist_new_string(value.toUtf8().constData()));
    char *bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_bin(list.get(), &bytes, &size);
    const std::unique_ptr<char, void (*)(void *)> owner(bytes, std::free);
    return {bytes, static_cast<qsizetype>(size)};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto list = PropertyDictionary::read(BytesOf(data, size).toByteArray());
    if (!list)
        return 0;
    for (const char *key : kKeys) {
        const auto text = list->text(key);
        if (!text)
            continue;
        Require(!text->contains(QChar(u'\0')), "a text does not end before its end");
        const auto again = PropertyDictionary::read(binaryListWith(key, *text));
        Require(again && again->text(key) == text, "a text is the same when it is written and read again");
    }
    return 0;
}
