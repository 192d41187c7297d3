#include "ipa/property_list.h"

#include <QByteArrayView>
#include <QXmlStreamReader>
#include <QtEndian>

#include <algorithm>

namespace {

constexpr QByteArrayView kBinaryHeader = "bplist00";
constexpr int kMaxDepth = 64;                // Qt keeps a hundred bytes for each
constexpr qsizetype kMaxAttributes = 20'000; // these take a second; a list needs one in all

// Qt takes the declaration for a mistake unless it comes first; other readers of property lists do not.
QByteArray withoutLeadingBlanks(const QByteArray &bytes)
{
    constexpr QByteArrayView kMark = "\xEF\xBB\xBF";
    constexpr QByteArrayView kBlanks = " \t\r\n";
    qsizetype start = bytes.startsWith(kMark) ? kMark.size() : 0;
    while (start < bytes.size() && kBlanks.contains(bytes[start]))
        ++start;
    return bytes.sliced(start);
}

// What Qt would take minutes or all the memory for: it compares each attribute of a tag with all others, and
// bounds the length of an entity, but not how often it is used. Looked for in the letters that all encodings
// share, before it sees them.
bool isHostile(const QByteArray &bytes)
{
    QByteArray letters = bytes;
    letters.removeIf([](char c) { return c == '\0'; });
    return letters.count('=') > kMaxAttributes || letters.contains("<!ATTLIST") ||
           letters.contains("<!ENTITY");
}

class XMLList
{
public:
    XMLList(const QByteArray &bytes, const QStringList &keys)
        : m_xml(withoutLeadingBlanks(bytes))
        , m_keys(keys)
    {
        m_xml.setNamespaceProcessing(false);
    }

    std::optional<PropertyTexts> read()
    {
        const bool isWrapped = toTag() && isAt(u"plist");
        const bool isRead = (!isWrapped || toTag()) && readDictionary();
        if (!isRead || (isWrapped && !(toTag() && m_xml.isEndElement())))
            return std::nullopt;
        return toTag() || m_xml.hasError() ? std::nullopt : std::optional(m_texts);
    }

private:
    // Goes on to the next tag; what stands before it is `m_text` then. False at the end and for whatever
    // cannot be read within bounds.
    bool toTag()
    {
        m_text.clear();
        while (true) {
            switch (m_xml.readNext()) {
            case QXmlStreamReader::StartElement:
                return ++m_depth <= kMaxDepth;
            case QXmlStreamReader::EndElement:
                --m_depth;
                return true;
            case QXmlStreamReader::Characters:
                m_text += m_xml.text();
                break;
            case QXmlStreamReader::EntityReference: // to one that is not declared
            case QXmlStreamReader::EndDocument:
            case QXmlStreamReader::Invalid:
                return false;
            default:
                break;
            }
        }
    }

    bool isAt(QStringView start) const { return m_xml.isStartElement() && m_xml.qualifiedName() == start; }

    bool readDictionary()
    {
        if (!isAt(u"dict"))
            return false;
        while (toTag() && m_xml.isStartElement()) {
            if (!isAt(u"key") || !toTag() || !m_xml.isEndElement())
                return false;
            const QString key = m_text;
            if (!toTag() || !m_xml.isStartElement() || !readValue(key))
                return false;
        }
        return m_xml.isEndElement();
    }

    // Of two equal keys the last one counts.
    bool readValue(const QString &key)
    {
        if (!isAt(u"string")) {
            m_texts.remove(key);
            return skip();
        }
        if (!toTag() || !m_xml.isEndElement())
            return false;
        if (m_keys.contains(key))
            m_texts.insert(key, m_text);
        return true;
    }

    bool skip()
    {
        for (const int level = m_depth; m_depth >= level;) {
            if (!toTag())
                return false;
        }
        return true;
    }

    QXmlStreamReader m_xml;
    const QStringList &m_keys;
    PropertyTexts m_texts;
    QString m_text;
    int m_depth = 0;
};

// Objects, a table of where each begins, and a trailer. A list may hold one object many times, so nothing is
// written out but the few texts that are wanted.
class BinaryList
{
public:
    explicit BinaryList(QByteArrayView bytes)
        : m_bytes(bytes)
    {
    }

    std::optional<PropertyTexts> read(const QStringList &keys)
    {
        const auto top = readTable() ? object(m_top) : std::nullopt;
        if (!top || top->kind != kDictionary)
            return std::nullopt;
        PropertyTexts texts;
        // Of two equal keys the first one counts, so it is read last.
        for (quint64 i = top->count; i-- > 0;) {
            const auto key = object(reference(*top, i));
            const auto value = object(reference(*top, top->count + i));
            if (!key || !value || !isText(*key))
                return std::nullopt;
            const auto wanted = std::find_if(keys.begin(), keys.end(), [&](const QString &name) {
                return static_cast<quint64>(name.size()) == key->count && text(*key) == name;
            });
            if (wanted != keys.end() && !take(*wanted, *value, texts))
                return std::nullopt;
        }
        return texts;
    }

private:
    static constexpr qsizetype kTrailerSize = 32;
    static constexpr quint64 kMaxIntegerSize = 8;

    // Upper half of an object's first byte.
    static constexpr quint64 kASCIIText = 0x5;
    static constexpr quint64 kUTF16Text = 0x6;
    static constexpr quint64 kDictionary = 0xD;

    struct Object
    {
        quint64 kind;
        quint64 count; // of items; the lower half of the first byte where there are none
        qsizetype at;  // the first item
    };

    quint64 number(qsizetype at, quint64 size) const
    {
        quint64 value = 0;
        for (quint64 i = 0; i < size; ++i)
            value = value << 8 | static_cast<quint8>(m_bytes[at++]);
        return value;
    }

    bool readTable()
    {
        const qsizetype trailer = m_bytes.size() - kTrailerSize;
        if (trailer < kBinaryHeader.size())
            return false;
        m_offsetSize = number(trailer + 6, 1);
        m_referenceSize = number(trailer + 7, 1);
        m_count = number(trailer + 8, 8);
        m_top = number(trailer + 16, 8);
        const quint64 table = number(trailer + 24, 8);
        const auto isSize = [](quint64 size) { return size >= 1 && size <= kMaxIntegerSize; };
        const auto end = static_cast<quint64>(trailer);
        if (!isSize(m_offsetSize) || !isSize(m_referenceSize) || table > end ||
            m_count > (end - table) / m_offsetSize)
            return false;
        m_table = static_cast<qsizetype>(table);
        for (quint64 i = 0; i < m_count; ++i) {
            if (offset(i) < static_cast<quint64>(kBinaryHeader.size()) || offset(i) >= table)
                return false;
        }
        return true;
    }

    quint64 offset(quint64 index) const
    {
        return number(m_table + static_cast<qsizetype>(index * m_offsetSize), m_offsetSize);
    }

    quint64 reference(const Object &owner, quint64 index) const
    {
        return number(owner.at + static_cast<qsizetype>(index * m_referenceSize), m_referenceSize);
    }

    std::optional<Object> object(quint64 index) const
    {
        if (index >= m_count)
            return std::nullopt;
        auto at = static_cast<qsizetype>(offset(index));
        const quint64 marker = number(at++, 1);
        Object object{marker >> 4, marker & 0xF, at};
        const quint64 size = itemSize(object.kind);
        if (size > 0 && ((object.count == 0xF && !readCount(object)) ||
                         object.count > static_cast<quint64>(m_table - object.at) / size))
            return std::nullopt;
        return object;
    }

    // Bytes; none for what is not looked into.
    quint64 itemSize(quint64 kind) const
    {
        switch (kind) {
        case kASCIIText:
            return 1;
        case kUTF16Text:
            return 2;
        case kDictionary:
            return 2 * m_referenceSize;
        default:
            return 0;
        }
    }

    // The count of a long object: an integer object of its own.
    bool readCount(Object &object) const
    {
        constexpr quint64 kInteger = 0x1;
        if (object.at >= m_table)
            return false;
        const quint64 marker = number(object.at++, 1);
        const auto size = quint64{1} << (marker & 0xF);
        if (marker >> 4 != kInteger || size > kMaxIntegerSize ||
            size > static_cast<quint64>(m_table - object.at))
            return false;
        object.count = number(object.at, size);
        object.at += static_cast<qsizetype>(size);
        return true;
    }

    static bool isText(const Object &object)
    {
        return object.kind == kASCIIText || object.kind == kUTF16Text;
    }

    // Nothing for what XML could not hold either. A NUL above all: "good.id<NUL>bad" is printed as "good.id".
    std::optional<QString> text(const Object &object) const
    {
        const char *const first = m_bytes.data() + object.at;
        const auto count = static_cast<qsizetype>(object.count);
        QString text;
        if (object.kind == kASCIIText) { // UTF-8 is written so, too
            if (!QUtf8StringView(first, count).isValidUtf8())
                return std::nullopt;
            text = QString::fromUtf8(first, count);
        } else {
            text.resize(count);
            qFromBigEndian<char16_t>(first, count, text.data());
        }
        return text.isValidUtf16() && !text.contains(QChar::Null) ? std::optional(text) : std::nullopt;
    }

    bool take(const QString &key, const Object &value, PropertyTexts &texts) const
    {
        texts.remove(key);
        if (!isText(value))
            return true;
        const auto found = text(value);
        if (found)
            texts.insert(key, *found);
        return found.has_value();
    }

    QByteArrayView m_bytes;
    quint64 m_offsetSize = 0;
    quint64 m_referenceSize = 0;
    quint64 m_count = 0;
    quint64 m_top = 0;
    qsizetype m_table = 0;
};

} // namespace

std::optional<PropertyTexts> ReadPropertyTexts(const QByteArray &bytes, const QStringList &keys)
{
    if (bytes.startsWith(kBinaryHeader))
        return BinaryList(bytes).read(keys);
    return isHostile(bytes) ? std::nullopt : XMLList(bytes, keys).read();
}
