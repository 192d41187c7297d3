#include "ipa/property_list.h"
#include "ipa_writer.h"

#include <QElapsedTimer>
#include <QTest>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace {

// Generous: the slowest row takes some 0.2 s here, and what the bounds keep out would take minutes or all the
// memory.
constexpr qint64 kBearableMilliseconds = 10'000;

QByteArray xmlList(const QByteArray &members)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\"><dict>" +
           members + "</dict></plist>\n";
}

QByteArray xmlText(const QByteArray &value)
{
    return xmlList("<key>k</key><string>" + value + "</string>");
}

template <typename T>
QByteArray bigEndian(T value)
{
    const T big = qToBigEndian(value);
    return QByteArray(reinterpret_cast<const char *>(&big), sizeof big);
}

QByteArray reference(qsizetype index)
{
    return bigEndian(static_cast<quint16>(index));
}

// A binary list with these encoded objects, two-byte references and four-byte offsets; the first one is the
// top.
QByteArray binaryList(const QList<QByteArray> &objects)
{
    QByteArray list = "bplist00";
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        offsets += bigEndian(static_cast<quint32>(list.size()));
        list += object;
    }
    const auto table = static_cast<quint64>(list.size());
    list += offsets + QByteArray(6, '\0') + '\x04' + '\x02';
    list += bigEndian(static_cast<quint64>(objects.size())) + bigEndian(quint64{0}) + bigEndian(table);
    return list;
}

// A dictionary whose only member, "k", is the third object.
QList<QByteArray> objectsWithMember(const QByteArray &member)
{
    return {"\xD1" + reference(1) + reference(2), "\x51k", member};
}

QByteArray arrayOf(qsizetype index, char count)
{
    QByteArray array(1, static_cast<char>(0xA0 + count));
    for (int i = 0; i < count; ++i)
        array += reference(index);
    return array;
}

// Each level holds the next one `width` times; the innermost is `leaf`.
QByteArray nestedArrays(int levels, char width, const QByteArray &leaf)
{
    QList<QByteArray> objects = objectsWithMember(arrayOf(3, width));
    for (int i = 1; i < levels; ++i)
        objects += arrayOf(objects.size() + 1, width);
    objects += leaf;
    return binaryList(objects);
}

QByteArray longText(char kind, quint32 count, const QByteArray &bytes)
{
    return kind + QByteArray("\x12") + bigEndian(count) + bytes;
}

// A chain of arrays that hangs on the member directly and, a second time, on the end of another chain.
QByteArray sharedChain(int levels)
{
    QList<QByteArray> objects = objectsWithMember("\xA2" + reference(3) + reference(3 + levels + 1));
    for (int i = 0; i < levels; ++i)
        objects += arrayOf(objects.size() + 1, 1);
    objects += "\x51x";
    for (int i = 1; i < levels; ++i)
        objects += arrayOf(objects.size() + 1, 1);
    objects += arrayOf(3, 1);
    return binaryList(objects);
}

} // namespace

class TestPropertyList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void text_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<std::optional<QString>>("text");
        const auto row = [](const char *name, const QByteArray &bytes, const std::optional<QString> &text) {
            QTest::newRow(name) << bytes << text;
        };
        row("XML text", xmlText("a б 🎈"), u"a б 🎈"_s);
        row("XML blanks are kept", xmlText("  a\n "), u"  a\n "_s);
        row("XML empty text", xmlText(""), u""_s);
        row("XML character references", xmlText("&lt;&amp;&#1076;&quot;]]&gt;"), u"<&д\"]]>"_s);
        row("XML comment and CDATA inside a text", xmlText("a<!-- <b> --><![CDATA[<&]]>c"), u"a<&c"_s);
        row("XML with 600,000 character references", xmlText(QByteArray("&amp;").repeated(600'000)),
            QString(600'000, u'&'));
        row("XML with character references in a key and an unused value",
            xmlList("<key>a&amp;</key><data>AAAA</data><key>k</key><string>&gt;</string>"), u">"_s);
        row("XML after a byte order mark", "\xEF\xBB\xBF" + xmlText("a"), u"a"_s);
        row("XML after blanks", "\n  " + xmlText("a").mid(xmlText("a").indexOf("<plist")), u"a"_s);
        const QString wide = u"\uFEFF<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><dict><key>k</key>"
                             "<string>д</string></dict></plist>"_s;
        row("XML in UTF-16", QByteArray(reinterpret_cast<const char *>(wide.utf16()), wide.size() * 2),
            u"д"_s);
        row("XML number is not a text", xmlList("<key>k</key><integer>1</integer>"), std::nullopt);
        row("XML member missing", xmlList("<key>other</key><string>a</string>"), std::nullopt);
        row("XML member of an inner dictionary",
            xmlList("<key>in</key><dict><key>k</key><string>a</string></dict>"), std::nullopt);

        row("binary text",
            binaryList(objectsWithMember("\x53"
                                         "abc")),
            u"abc"_s);
        row("binary UTF-16", binaryList(objectsWithMember(QByteArray("\x62\x04\x34\x00\x61", 5))), u"дa"_s);
        row("binary long text", binaryList(objectsWithMember(longText('\x5F', 20, QByteArray(20, 'x')))),
            QString(20, u'x'));
        row("binary number is not a text", binaryList(objectsWithMember("\x10\x07")), std::nullopt);
        row("binary, shared within bounds", nestedArrays(10, 2, "\x51x"), std::nullopt);
        row("binary, a chain on the end of another, 62 levels", sharedChain(29), std::nullopt);
        row("written by libplist", infoPropertyList({.binaryInfo = true}), std::nullopt);
    }

    void text()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(std::optional<QString>, text);
        QElapsedTimer timer;
        timer.start();
        const auto list = PropertyDictionary::read(bytes);
        QVERIFY(list);
        QCOMPARE(list->text("k"), text);
        QCOMPARE_LT(timer.elapsed(), kBearableMilliseconds);
    }

    void refused_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const auto row = [](const char *name, const QByteArray &bytes) { QTest::newRow(name) << bytes; };
        const auto deep = [](int levels) {
            return QByteArray("<array>").repeated(levels) + QByteArray("</array>").repeated(levels);
        };
        row("nothing", "");
        row("text", "hello");
        row("JSON", "{\"k\":\"v\"}");
        row("XML array on top", "<plist><array/></plist>");
        row("XML cut short", xmlText("a").chopped(20));
        row("XML tags crossed", xmlList("<key>k</key><array><string>a</array></string>"));
        row("XML unknown type", xmlList("<key>k</key><what>a</what>"));
        row("XML entity that is not declared", xmlText("&none;"));
        row("XML entity used a million times", "<!DOCTYPE plist [<!ENTITY a \"" + QByteArray(4000, 'x') +
                                                   "\">]><plist><dict><key>k</key><string>" +
                                                   QByteArray("&a;").repeated(1'000'000) +
                                                   "</string></dict></plist>");
        row("XML nested 65 levels", xmlList("<key>k</key>" + deep(65)));
        // Two readers that disagree about where the DTD ends would see different lists.
        row("XML nested deeply within the DTD", "<!DOCTYPE plist [<!ENTITY a \"]><plist><dict><key>k</key>" +
                                                    deep(100'000) + "</dict></plist>\">]><plist/>");
        row("XML entity bomb within the DTD", "<!DOCTYPE plist [<!ENTITY % a '" + QByteArray(4000, ' ') +
                                                  "'><!ENTITY % b '" + QByteArray("%a;").repeated(1000) +
                                                  "'><!ENTITY % c '" + QByteArray("%b;").repeated(1000) +
                                                  "'>%c;%c;%c;]><plist><dict/></plist>");
        row("XML half a million values",
            xmlList("<key>k</key><array>" + QByteArray("<true/>").repeated(500'000) + "</array>"));

        row("binary header only", "bplist00");
        row("binary array on top", binaryList({"\xA0"}));
        row("binary holds itself", binaryList(objectsWithMember(arrayOf(2, 1))));
        row("binary holds its owner", binaryList(objectsWithMember(arrayOf(0, 1))));
        row("binary nested 65 levels", nestedArrays(65, 1, "\x51x"));
        row("binary, a chain on the end of another, 82 levels", sharedChain(40));
        row("binary shared 2^40 times", nestedArrays(40, 2, "\x51x"));
        row("binary text with a NUL", binaryList(objectsWithMember(QByteArray("\x53"
                                                                              "a\0b",
                                                                              4))));
        row("binary UTF-16 text with a NUL", binaryList(objectsWithMember(QByteArray("\x62\0a\0\0", 5))));
        row("binary long text shared 10^5 times",
            nestedArrays(5, 10, longText('\x5F', 1'000'000, QByteArray(1'000'000, 'x'))));
        row("binary reference to nowhere", binaryList(objectsWithMember(arrayOf(9, 1))));
        row("binary text beyond the end", binaryList(objectsWithMember(longText('\x5F', 0x7FFFFFFF, "x"))));
        QByteArray manyObjects = binaryList(objectsWithMember("\x51x"));
        manyObjects.replace(manyObjects.size() - 24, 8, QByteArray(8, '\xFF'));
        row("binary claims 2^64 objects", manyObjects);
    }

    void refused()
    {
        QFETCH(QByteArray, bytes);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!PropertyDictionary::read(bytes));
        QCOMPARE_LT(timer.elapsed(), kBearableMilliseconds);
    }

    void damagedAnywhere_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("XML") << infoPropertyList({});
        QTest::newRow("binary") << infoPropertyList({.binaryInfo = true});
        QTest::newRow("binary, nested") << nestedArrays(12, 2, "\x51x");
    }

    // Whatever a byte is turned into and wherever the list ends, reading neither crashes nor reads beyond the
    // end.
    void damagedAnywhere()
    {
        QFETCH(QByteArray, bytes);
        for (qsizetype at = 0; at < bytes.size(); ++at) {
            for (const char value : {'\0', '\x7F', '\xFF', '<', '\xA1', '\xDF', '\x13'}) {
                QByteArray damaged = bytes;
                damaged[at] = value;
                if (const auto list = PropertyDictionary::read(damaged))
                    list->text("CFBundleIdentifier");
            }
            PropertyDictionary::read(bytes.first(at));
        }
    }
};

QTEST_GUILESS_MAIN(TestPropertyList)
#include "tst_property_list.moc"
