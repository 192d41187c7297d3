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

QByteArray doctype(const QByteArray &declarations, const QByteArray &text)
{
    return "<!DOCTYPE plist [" + declarations + "]><plist><dict><key>k</key><string>" + text +
           "</string></dict></plist>";
}

// So many bytes, the most significant one first.
QByteArray number(quint64 value, int bytes)
{
    return bytes == 0 ? QByteArray() : number(value >> 8, bytes - 1) + static_cast<char>(value);
}

QByteArray reference(qsizetype index)
{
    return number(static_cast<quint64>(index), 2);
}

// A binary list with these encoded objects, two-byte references and four-byte offsets; the first one is the
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
    list += offsets + QByteArray(6, '\0') + '\x04' + '\x02';
    return list + number(static_cast<quint64>(objects.size()), 8) + number(0, 8) + number(table, 8);
}

// A dictionary whose only member, "k", is the third object.
QList<QByteArray> objectsWithMember(const QByteArray &member)
{
    return {"\xD1" + reference(1) + reference(2), "\x51k", member};
}

QByteArray member(const QByteArray &encoded)
{
    return binaryList(objectsWithMember(encoded));
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
    return kind + QByteArray("\x12") + number(count, 4) + bytes;
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
    void reads_data()
    {
        const Rows<QByteArray, QString> row; // the bytes and the text of "k"
        row("XML text, blanks kept", xmlText("  a б 🎈\n "), u"  a б 🎈\n "_s);
        row("XML character references", xmlText("&lt;&amp;&#1076;&quot;]]&gt;"), u"<&д\"]]>"_s);
        row("XML comment and CDATA in a text", xmlText("a<!-- <b> --><![CDATA[<&]]>c"), u"a<&c"_s);
        row("XML with 600,000 references", xmlText(repeated("&amp;", 600'000)), QString(600'000, u'&'));
        row("XML after a byte order mark", "\xEF\xBB\xBF" + xmlText("a"), u"a"_s);
        const QString wide = u"\uFEFF<plist><dict><key>k</key><string>д</string></dict></plist>"_s;
        const QByteArray utf16(reinterpret_cast<const char *>(wide.utf16()), wide.size() * 2);
        row("XML in UTF-16", utf16, u"д"_s);
        row("binary UTF-16", member(QByteArray("\x62\x04\x34\x00\x61", 5)), u"дa"_s);
        row("binary number is not a text", member("\x10\x07"), kNoText);
        row("binary, shared within bounds", nestedArrays(10, 2, "\x51x"), kNoText);
        row("binary, a chain on the end of another, 62 levels", sharedChain(29), kNoText);

        const auto deep = [](int n) { return repeated("<array>", n) + repeated("</array>", n); };
        const auto refused = [&row](const char *name, const QByteArray &bytes) {
            row(name, bytes, kRefused);
        };
        refused("XML cut short", xmlText("a").chopped(20));
        refused("XML tags crossed", xmlList("<key>k</key><array><string>a</array></string>"));
        refused("XML entity that is not declared", xmlText("&none;"));
        refused("XML entity used a million times",
                doctype("<!ENTITY a \"" + repeated("x", 4000) + "\">", repeated("&a;", 1'000'000)));
        refused("XML nested 65 levels", xmlList("<key>k</key>" + deep(65)));
        // Two readers that disagree about where the DTD ends would see different lists.
        refused("XML nested deeply in the DTD",
                doctype("<!ENTITY a \"]><plist>" + deep(100'000) + "\">", ""));
        refused("XML entity bomb in the DTD",
                doctype("<!ENTITY % a '" + repeated(" ", 4000) + "'><!ENTITY % b '" + repeated("%a;", 1000) +
                            "'><!ENTITY % c '" + repeated("%b;", 1000) + "'>%c;%c;%c;",
                        ""));
        refused("XML half a million values",
                xmlList("<key>k</key><array>" + repeated("<true/>", 500'000) + "</array>"));
        refused("binary array on top", binaryList({"\xA0"}));
        refused("binary holds itself", member(arrayOf(2, 1)));
        refused("binary holds its owner", member(arrayOf(0, 1)));
        refused("binary nested 65 levels", nestedArrays(65, 1, "\x51x"));
        refused("binary, a chain on the end of another, 82 levels", sharedChain(40));
        refused("binary shared 2^40 times", nestedArrays(40, 2, "\x51x"));
        refused("binary text with a NUL", member(QByteArray("\x53\x61\0b", 4)));
        refused("binary UTF-16 text with a NUL", member(QByteArray("\x62\0a\0\0", 5)));
        refused("binary long text shared 10^5 times",
                nestedArrays(5, 10, longText('\x5F', 1'000'000, repeated("x", 1'000'000))));
        refused("binary reference to nowhere", member(arrayOf(9, 1)));
        refused("binary text beyond the end", member(longText('\x5F', 0x7FFFFFFF, "x")));
        QByteArray farAway = member("\x51x");
        farAway.replace(farAway.size() - 36, 4, QByteArray(4, '\xFF'));
        refused("binary object beyond the end", farAway);
        QByteArray manyObjects = member("\x51x");
        manyObjects.replace(manyObjects.size() - 24, 8, QByteArray(8, '\xFF'));
        refused("binary claims 2^64 objects", manyObjects);
    }

    void reads()
    {
        const auto &[bytes, text] = Row<QByteArray, QString>();
        QElapsedTimer timer;
        timer.start();
        const auto list = PropertyDictionary::read(bytes);
        QCOMPARE(list ? list->text("k").value_or(kNoText) : kRefused, text);
        QCOMPARE_LT(timer.elapsed(), kBearableMilliseconds);
    }
};

QTEST_GUILESS_MAIN(TestPropertyList)
#include "tst_property_list.moc"
