#include "ipa/property_list.h"
#include "support/rows.h"

#include <QElapsedTimer>

using namespace Qt::StringLiterals;

namespace {

// Generous: the slowest row takes some 0.2 s here, and what the bounds keep out would take minutes or all the
// memory.
constexpr qint64 kBearableMilliseconds = 10'000;

const QString kNoText = u"no text"_s;
const QString kRefused = u"refused"_s;

QByteArray repeated(const char *bytes, qsizetype times)
{
    return QByteArray(bytes).repeated(times);
}

QByteArray xmlList(const QByteArray &members)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/PropertyList.dtd\">\n"
           "<plist version=\"1.0\"><dict>" +
           members + "</dict></plist>\n";
}

QByteArray xmlText(const QByteArray &value)
{
    return xmlList("<key>k</key><string>" + value + "</string>");
}

QByteArray utf16(const QString &text)
{
    return {reinterpret_cast<const char *>(text.utf16()), text.size() * 2};
}

// So many bytes, the most significant one first.
QByteArray number(quint64 value, int bytes)
{
    return bytes == 0 ? QByteArray() : number(value >> 8, bytes - 1) + static_cast<char>(value);
}

// A binary list with these encoded objects, one-byte references and four-byte offsets; the first one is the
// top.
QByteArray binaryList(const QList<QByteArray> &objects)
{
    QByteArray list = "bplist00";
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        offsets += number(static_cast<quint64>(list.size()), 4);
        list += object;
    }
    const auto table = static_cast<quint64>(list.size());
    list += offsets + QByteArray(6, '\0') + '\x04' + '\x01';
    return list + number(static_cast<quint64>(objects.size()), 8) + number(0, 8) + number(table, 8);
}

// A dictionary whose only member is "k".
QByteArray member(const QByteArray &encoded)
{
    return binaryList({"\xD1\x01\x02", "\x51k", encoded});
}

// With other bytes at this distance from the end: 24 is the count of objects, 36 the offset of the last one.
QByteArray patched(qsizetype fromEnd, const QByteArray &bytes)
{
    QByteArray list = member("\x51x");
    return list.replace(list.size() - fromEnd, bytes.size(), bytes);
}

} // namespace

class TestPropertyList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reads_data()
    {
        const Rows<QByteArray, QString> row; // the bytes and the text of "k"
        row("XML text, blanks kept", xmlText("  a б 🎈\n "), u"  a б 🎈\n "_s);
        row("XML character references", xmlText("&lt;&amp;&#1076;&quot;]]&gt;"), u"<&д\"]]>"_s);
        row("XML comment and CDATA in a text", xmlText("a<!-- <b> --><![CDATA[<&]]>c"), u"a<&c"_s);
        row("XML after a byte order mark and blanks", "\xEF\xBB\xBF \r\n\t" + xmlText("a"), u"a"_s);
        row("XML in UTF-16", utf16(u"\uFEFF<plist><dict><key>k</key><string>д</string></dict></plist>"_s),
            u"д"_s);
        row("XML with an empty key", xmlList("<key></key><true/><key>k</key><string>a</string>"), u"a"_s);
        row("XML, the text of a deeper level",
            xmlList("<key>d</key><dict><key>k</key><string>a</string></dict>"), kNoText);
        row("XML, twice: the last", xmlList("<key>k</key><string>a</string><key>k</key><true/>"), kNoText);
        row("binary UTF-16", member(QByteArray("\x62\x04\x34\x00\x61", 5)), u"дa"_s);
        row("binary number is not a text", member("\x10\x07"), kNoText);
        row("binary, twice: the first", binaryList({"\xD2\x01\x01\x02\x03", "\x51k", "\x51x", "\x10\x07"}),
            u"x"_s);
        row("binary, what is not wanted holds itself",
            binaryList({"\xD2\x01\x03\x02\x04", "\x51k", "\x51x", "\x51y", "\xA1\x04"}), u"x"_s);

        const auto refused = [&row](const char *name, const QByteArray &bytes) {
            row(name, bytes, kRefused);
        };
        refused("XML cut short", xmlText("a").chopped(20));
        refused("XML tags crossed", xmlList("<key>k</key><array><string>a</array></string>"));
        refused("XML with words behind the list", xmlText("a") + "a");
        refused("XML with two lists", xmlList("</dict><dict>"));
        refused("XML text with an element", xmlText("a<b/>"));
        refused("XML key without a value", xmlList("<key>k</key>"));
        refused("XML value without a key", xmlList("<string>k</string><string>a</string>"));
        refused("XML entity that is not declared", xmlText("&none;"));
        refused("XML entity used a million times", "<!DOCTYPE plist [<!ENTITY a \"" + repeated("x", 4000) +
                                                       "\">]><plist><dict><key>k</key><string>" +
                                                       repeated("&a;", 1'000'000) +
                                                       "</string></dict></plist>");
        refused("XML nested 65 levels",
                xmlList("<key>k</key>" + repeated("<array>", 63) + repeated("</array>", 63)));
        QByteArray attributes;
        QString defaults = u"\uFEFF<!DOCTYPE plist [<!ATTLIST plist"_s;
        for (int i = 0; i < 300'000; ++i) {
            attributes += " a" + QByteArray::number(i) + "=''";
            defaults += u" a%1 CDATA ''"_s.arg(i);
        }
        defaults += u">]><plist><dict/></plist>"_s;
        refused("XML with 300,000 attributes", xmlText("a").replace("<string", "<string" + attributes));
        refused("XML with 300,000 attributes declared, in UTF-16", utf16(defaults));
        refused("binary array on top", binaryList({"\xA0"}));
        refused("binary, a key is a number", binaryList({"\xD1\x01\x02", "\x10\x07", "\x51x"}));
        refused("binary text with a NUL", member(QByteArray("\x53\x61\0b", 4)));
        refused("binary UTF-16 text with a NUL", member(QByteArray("\x62\0a\0\0", 5)));
        refused("binary text, half a character", member("\x51\xD0"));
        refused("binary text, half a pair", member(QByteArray("\x61\xD8\0", 3)));
        refused("binary reference to nowhere", binaryList({"\xD1\x01\x09", "\x51k"}));
        refused("binary text beyond the end", member("\x5F\x12\x7F\xFF\xFF\xFF x"));
        refused("binary count beyond the end", member("\x5F\x13"));
        refused("binary dictionary beyond the end", binaryList({"\xDF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}));
        refused("binary object beyond the end", patched(36, QByteArray(4, '\xFF')));
        refused("binary claims 2^64 objects", patched(24, QByteArray(8, '\xFF')));
        refused("binary offsets of no bytes", patched(26, QByteArray(1, '\0')));
        refused("binary table beyond the end", patched(8, QByteArray(8, '\x7F')));
    }

    void reads()
    {
        const auto &[bytes, text] = Row<QByteArray, QString>();
        QElapsedTimer timer;
        timer.start();
        const auto texts = ReadPropertyTexts(bytes, {u"k"_s});
        QCOMPARE(texts ? texts->value(u"k"_s, kNoText) : kRefused, text);
        QCOMPARE_LT(timer.elapsed(), kBearableMilliseconds);
    }
};

QTEST_GUILESS_MAIN(TestPropertyList)
#include "tst_property_list.moc"
