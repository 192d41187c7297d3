#include "ipa/property_list.h"

#include <QByteArrayView>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <plist/plist.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

// libplist recurses once a level, copies a shared object for every reference to it, and resolves the
// character references of a text in quadratic time. All three are bounded here before it sees a byte.

namespace {

constexpr int kMaxDepth = 64;
constexpr qint64 kMaxValues = 100'000;
constexpr qint64 kMaxExpandedBytes = qint64{24} << 20;
constexpr qint64 kBytesPerValue = 200; // libplist 2.2 takes 110 to 170 on a 64-bit system

// A start, a text and an end for each value.
constexpr qint64 kMaxTokens = 3 * kMaxValues;

void writeText(QXmlStreamWriter &writer, const QString &text)
{
    // In a CDATA section there is no character reference to resolve.
    const bool needsEscapes = std::any_of(
        text.begin(), text.end(), [](QChar c) { return c == u'&' || c == u'<' || c == u'>' || c == u'"'; });
    if (needsEscapes)
        writer.writeCDATA(text);
    else
        writer.writeCharacters(text);
}

// The same list written plainly, when it is well-formed and within bounds: no comment, no DTD, no attribute.
// libplist tells these from content by rules of its own, and would not see the list that was checked here.
std::optional<QByteArray> plainXML(const QByteArray &bytes)
{
    QXmlStreamReader reader(bytes);
    reader.setNamespaceProcessing(false);
    QByteArray plain;
    QXmlStreamWriter writer(&plain);
    int depth = 0;
    for (qint64 tokens = 0; !reader.atEnd(); ++tokens) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            ++depth;
            writer.writeStartElement(reader.qualifiedName().toString());
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            writer.writeEndElement();
            break;
        case QXmlStreamReader::Characters:
            writeText(writer, reader.text().toString());
            break;
        case QXmlStreamReader::DTD:
            // Qt bounds the length of an entity, not how often it is used.
            if (!reader.entityDeclarations().isEmpty())
                return std::nullopt;
            break;
        case QXmlStreamReader::EntityReference:
            return std::nullopt;
        default:
            break;
        }
        if (depth > kMaxDepth || tokens > kMaxTokens)
            return std::nullopt;
    }
    if (reader.hasError())
        return std::nullopt;
    return plain;
}

// Measures what a binary list becomes once every reference is followed, without following one twice.
class BinaryListMeter
{
public:
    explicit BinaryListMeter(QByteArrayView bytes)
        : m_bytes(bytes)
    {
    }

    /// True when the list is sound and within the bounds. A cycle is a path without end, so it is too deep.
    bool isBearable()
    {
        if (!readTrailer() || !enter(m_top))
            return false;
        while (!m_path.empty()) {
            Visit &visit = m_path.back();
            if (visit.left == 0) {
                if (!leave())
                    return false;
                continue;
            }
            const quint64 child = number(visit.nextReference, m_referenceSize);
            visit.nextReference += m_referenceSize;
            --visit.left;
            if (child >= m_objects.size())
                return false;
            const Object &object = m_objects[child];
            if (object.isMeasured ? !add(object) : !enter(child))
                return false;
        }
        return true;
    }

private:
    static constexpr qsizetype kHeaderSize = 8;
    static constexpr qsizetype kTrailerSize = 32;

    // Upper half of an object's first byte. What is smaller are numbers and dates, what is larger than an
    // array are sets and dictionaries.
    static constexpr quint64 kData = 0x4;
    static constexpr quint64 kText = 0x5;
    static constexpr quint64 kUTF16Text = 0x6;
    static constexpr quint64 kArray = 0xA;
    static constexpr quint64 kDictionary = 0xD;

    struct Object
    {
        qint64 expanded = 0; // bytes
        int height = 1;      // levels, its own included
        bool isMeasured = false;
    };
    struct Visit
    {
        quint64 index;
        qsizetype nextReference;
        qint64 left; // references not yet followed
    };

    quint64 number(qsizetype at, qsizetype size) const
    {
        quint64 value = 0;
        for (qsizetype i = 0; i < size; ++i)
            value = value << 8 | static_cast<quint8>(m_bytes[at + i]);
        return value;
    }

    bool readTrailer()
    {
        m_end = m_bytes.size() - kTrailerSize;
        if (m_end < kHeaderSize)
            return false;
        m_offsetSize = static_cast<quint8>(m_bytes[m_end + 6]);
        m_referenceSize = static_cast<quint8>(m_bytes[m_end + 7]);
        const quint64 count = number(m_end + 8, 8);
        m_top = number(m_end + 16, 8);
        const quint64 table = number(m_end + 24, 8);
        const auto end = static_cast<quint64>(m_end);
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_referenceSize < 1 || m_referenceSize > 8 ||
            count > kMaxValues || m_top >= count || table < kHeaderSize || table > end ||
            count * static_cast<quint64>(m_offsetSize) > end - table)
            return false;
        m_table = static_cast<qsizetype>(table);
        m_objects.resize(count);
        return true;
    }

    // Starts the object `index`: its own size is known then, that of its members is added when they are left.
    bool enter(quint64 index)
    {
        const quint64 offset = number(m_table + static_cast<qsizetype>(index) * m_offsetSize, m_offsetSize);
        if (offset < kHeaderSize || offset >= static_cast<quint64>(m_end) || m_path.size() >= kMaxDepth)
            return false;
        auto at = static_cast<qsizetype>(offset);
        const quint64 marker = number(at++, 1);
        const quint64 kind = marker >> 4;
        quint64 count = marker & 0xF;
        if (count == 0xF && kind >= kData && !readCount(at, count))
            return false;
        const auto room = static_cast<quint64>(m_end - at);
        const quint64 size = count > room ? room + 1 : count * itemSize(kind);
        if (size > room || (kind == kUTF16Text && hasNul(at, count, 2)) ||
            (kind == kText && hasNul(at, count, 1)))
            return false;
        const bool isContainer = kind >= kArray;
        Object &object = m_objects[index];
        object.expanded = kBytesPerValue + (isContainer ? 0 : static_cast<qint64>(2 * size));
        const auto references = static_cast<qint64>(kind == kDictionary ? 2 * count : count);
        m_path.push_back({index, at, isContainer ? references : 0});
        return true;
    }

    // Bytes for each of an object's counted items; numbers and dates have none that count.
    quint64 itemSize(quint64 kind) const
    {
        if (kind < kData)
            return 0;
        if (kind == kUTF16Text)
            return 2;
        if (kind < kArray)
            return 1;
        return static_cast<quint64>(kind == kDictionary ? 2 * m_referenceSize : m_referenceSize);
    }

    // libplist's texts end at the first one, so that "good.id<NUL>bad" would read as "good.id".
    bool hasNul(qsizetype at, quint64 count, qsizetype unit) const
    {
        for (quint64 i = 0; i < count; ++i, at += unit) {
            if (number(at, unit) == 0)
                return true;
        }
        return false;
    }

    // The count of a long object: an integer object of its own.
    bool readCount(qsizetype &at, quint64 &count) const
    {
        if (at >= m_end)
            return false;
        const quint64 marker = number(at++, 1);
        const qsizetype size = qsizetype{1} << (marker & 0x3);
        if (marker < 0x10 || marker > 0x13 || size > m_end - at)
            return false;
        count = number(at, size);
        at += size;
        return true;
    }

    bool leave()
    {
        Object &object = m_objects[m_path.back().index];
        object.isMeasured = true;
        m_path.pop_back();
        return m_path.empty() || add(object);
    }

    // Adds a measured member to the object that is being visited.
    bool add(const Object &member)
    {
        Object &owner = m_objects[m_path.back().index];
        owner.expanded += member.expanded;
        owner.height = std::max(owner.height, member.height + 1);
        return owner.expanded <= kMaxExpandedBytes && owner.height <= kMaxDepth;
    }

    QByteArrayView m_bytes;
    qsizetype m_end = 0;
    qsizetype m_table = 0;
    qsizetype m_offsetSize = 0;
    qsizetype m_referenceSize = 0;
    quint64 m_top = 0;
    std::vector<Object> m_objects;
    std::vector<Visit> m_path;
};

bool fitsLibplist(const QByteArray &bytes)
{
    return bytes.size() <= std::numeric_limits<quint32>::max();
}

plist_t parse(const QByteArray &bytes)
{
    plist_t node = nullptr;
    if (bytes.startsWith("bplist")) {
        if (fitsLibplist(bytes) && BinaryListMeter(bytes).isBearable())
            plist_from_bin(bytes.constData(), static_cast<uint32_t>(bytes.size()), &node);
        return node;
    }
    const auto plain = plainXML(bytes);
    if (plain && fitsLibplist(*plain))
        plist_from_xml(plain->constData(), static_cast<uint32_t>(plain->size()), &node);
    return node;
}

} // namespace

PropertyDictionary::PropertyDictionary(Node node)
    : m_node(std::move(node))
{
}

std::optional<PropertyDictionary> PropertyDictionary::read(const QByteArray &bytes)
{
    Node node(parse(bytes), plist_free);
    if (!node || plist_get_node_type(node.get()) != PLIST_DICT)
        return std::nullopt;
    return PropertyDictionary(std::move(node));
}

std::optional<QString> PropertyDictionary::text(const char *key) const
{
    const plist_t value = plist_dict_get_item(m_node.get(), key);
    if (!value || plist_get_node_type(value) != PLIST_STRING)
        return std::nullopt;
    uint64_t length = 0;
    const char *const bytes = plist_get_string_ptr(value, &length);
    return QString::fromUtf8(bytes, static_cast<qsizetype>(length));
}
