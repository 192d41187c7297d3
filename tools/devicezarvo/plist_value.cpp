#include "plist_value.h"

#include "core/bounded_text.h"

#include <limits>

namespace {

constexpr qsizetype kLongestText = 4096;

} // namespace

plist_t PlistMember(plist_t dictionary, const char *key)
{
    if (!dictionary || plist_get_node_type(dictionary) != PLIST_DICT)
        return nullptr;
    return plist_dict_get_item(dictionary, key);
}

QString PlistText(plist_t node)
{
    if (!node)
        return {};
    if (plist_get_node_type(node) == PLIST_UINT)
        return QString::number(PlistWhole(node).value_or(0));
    if (plist_get_node_type(node) != PLIST_STRING)
        return {};
    std::uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return BoundedText(QString::fromUtf8(text, static_cast<qsizetype>(length)), kLongestText);
}

std::optional<quint64> PlistWhole(plist_t node)
{
    if (!node)
        return std::nullopt;
    if (plist_get_node_type(node) == PLIST_UINT) {
        std::uint64_t number = 0;
        plist_get_uint_val(node, &number);
        return number;
    }
    if (plist_get_node_type(node) == PLIST_STRING) {
        bool whole = false;
        const quint64 number = PlistText(node).toULongLong(&whole);
        if (whole)
            return number;
    }
    return std::nullopt;
}

std::optional<bool> PlistTruth(plist_t node)
{
    if (node && plist_get_node_type(node) == PLIST_BOOLEAN) {
        std::uint8_t truth = 0;
        plist_get_bool_val(node, &truth);
        return truth != 0;
    }
    const auto number = PlistWhole(node);
    return number ? std::optional(*number != 0) : std::nullopt;
}

QByteArray PlistBytes(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_DATA)
        return {};
    std::uint64_t length = 0;
    const char *bytes = plist_get_data_ptr(node, &length);
    return {bytes, static_cast<qsizetype>(length)};
}

Plist ParsePlist(const QByteArray &bytes)
{
    plist_t node = nullptr;
    if (!bytes.isEmpty() && bytes.size() <= std::numeric_limits<int>::max())
        plist_from_memory(bytes.constData(), static_cast<std::uint32_t>(bytes.size()), &node);
    return Plist(node);
}
