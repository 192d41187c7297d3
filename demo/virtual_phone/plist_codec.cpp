#include "plist_codec.h"

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>

namespace {

using Node = std::unique_ptr<void, void (*)(void *)>;
using Memory = std::unique_ptr<char, void (*)(void *)>;

plist_t toNode(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray data = value.toByteArray();
        return plist_new_data(data.constData(), static_cast<uint64_t>(data.size()));
    }
    case QMetaType::QVariantList: {
        plist_t array = plist_new_array();
        for (const QVariant &item : value.toList())
            plist_array_append_item(array, toNode(item));
        return array;
    }
    case QMetaType::QVariantMap: {
        plist_t dictionary = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto item = map.begin(); item != map.end(); ++item)
            plist_dict_set_item(dictionary, item.key().toUtf8().constData(), toNode(item.value()));
        return dictionary;
    }
    default:
        return plist_new_string(value.toString().toUtf8().constData());
    }
}

QVariant fromNode(plist_t node);

QVariantMap fromDictionary(plist_t node)
{
    QVariantMap map;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const Memory owner(static_cast<char *>(iterator), std::free);
    while (iterator) {
        char *key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &key, &item);
        const Memory keyOwner(key, std::free);
        if (!item)
            break;
        map.insert(QString::fromUtf8(key), fromNode(item));
    }
    return map;
}

QVariant fromNode(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return static_cast<qint64>(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        char *text = nullptr;
        if (plist_get_node_type(node) == PLIST_KEY)
            plist_get_key_val(node, &text);
        else
            plist_get_string_val(node, &text);
        const Memory owner(text, std::free);
        return QString::fromUtf8(text);
    }
    case PLIST_DATA: {
        uint64_t size = 0;
        const char *data = plist_get_data_ptr(node, &size);
        return QByteArray(data, static_cast<qsizetype>(size));
    }
    case PLIST_ARRAY: {
        QVariantList list;
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
            list.append(fromNode(plist_array_get_item(node, i)));
        return list;
    }
    case PLIST_DICT:
        return fromDictionary(node);
    default:
        return {};
    }
}

} // namespace

QByteArray encodePlist(const QVariant &value, PlistFormat format)
{
    const Node node(toNode(value), plist_free);
    char *bytes = nullptr;
    uint32_t size = 0;
    if (format == PlistFormat::Binary)
        plist_to_bin(node.get(), &bytes, &size);
    else
        plist_to_xml(node.get(), &bytes, &size);
    const Memory owner(bytes, std::free);
    return QByteArray(bytes, static_cast<qsizetype>(size));
}

std::optional<QVariantMap> decodePlist(QByteArrayView bytes)
{
    if (bytes.isEmpty() || bytes.size() > std::numeric_limits<int32_t>::max())
        return std::nullopt;
    plist_t parsed = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
    const Node node(parsed, plist_free);
    if (!parsed || plist_get_node_type(parsed) != PLIST_DICT)
        return std::nullopt;
    return fromDictionary(parsed);
}
