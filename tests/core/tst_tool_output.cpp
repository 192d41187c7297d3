#include "core/tool_output.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

class ToolOutputTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decodesText_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        const QByteArray longASCII(100'000, 'a');
        QTest::newRow("nothing") << QByteArray() << QString();
        QTest::newRow("Cyrillic and beyond the basic plane") << QByteArray("да 🙂") << u"да 🙂"_s;
        QTest::newRow("byte order mark kept") << QByteArray("\xef\xbb\xbfx") << u"\uFEFFx"_s;
        QTest::newRow("NUL kept") << QByteArray("a\0b", 3) << QString(u"a"_s + QChar::Null + u'b');
        QTest::newRow("stray byte: empty") << QByteArray("a\xff") << QString();
        QTest::newRow("stray byte far behind: empty") << longASCII + '\x80' << QString();
        QTest::newRow("cut off at the end: empty") << longASCII + "\xf0\x9f\x99" << QString();
        QTest::newRow("overlong slash: empty") << QByteArray("\xc0\xaf") << QString();
        QTest::newRow("surrogate: empty") << QByteArray("\xed\xa0\x80") << QString();
        QTest::newRow("beyond Unicode: empty") << QByteArray("\xf4\x90\x80\x80") << QString();
    }

    void decodesText()
    {
        QFETCH(const QByteArray, bytes);
        QTEST(ZarvoText(bytes), "text");
    }

    void findsObjects_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("objects"); // as one compact array

        const auto row = [](const char *name, const QString &text, const QString &objects) {
            QTest::newRow(name) << text << objects;
        };
        row("nothing", {}, u"[]"_s);
        row("behind a word, a colon and a blank", u"reply: {\"a\":1}"_s, u"[{\"a\":1}]"_s);
        row("one a line, in their order", u"{\"b\":2}\nnoise\n{\"a\":1}\n"_s, u"[{\"b\":2},{\"a\":1}]"_s);
        row("CR LF", u"{\"a\":1}\r\n\r\n{\"b\":2}\r\n"_s, u"[{\"a\":1},{\"b\":2}]"_s);
        row("all the other line ends",
            u"{\"a\":1}\v{\"b\":2}\f{\"c\":3}\u0085{\"d\":4}\u2028{\"e\":5}\u2029{\"f\":6}"_s,
            u"[{\"a\":1},{\"b\":2},{\"c\":3},{\"d\":4},{\"e\":5},{\"f\":6}]"_s);
        row("over two lines: the whole text", u"{\"a\":\n1}"_s, u"[{\"a\":1}]"_s);
        row("a line separator within a string: the whole text", u"{\"a\":\"x\u2028y\"}"_s,
            u"[{\"a\":\"x\u2028y\"}]"_s);
        row("over two lines beside a whole line: only the line", u"{\"a\":\n1}\n{\"b\":2}"_s,
            u"[{\"b\":2}]"_s);
        row("an object within a line of the whole: only the inner one", u"{\"a\":\n {\"b\":2}\n}"_s,
            u"[{\"b\":2}]"_s);
        row("array of numbers: none", u"[1,2]"_s, u"[]"_s);
        row("array around an object: none", u"[{\"a\":1}]"_s, u"[]"_s);
        row("words behind the object: none", u"{\"a\":1} done"_s, u"[]"_s);
        row("a brace in the prefix: none", u"{x} {\"a\":1}"_s, u"[]"_s);
        row("cut off: none", u"{\"a\":1"_s, u"[]"_s);
        row("NUL between objects: none", u"{\"a\":1}"_s + QChar::Null + u"{\"b\":2}"_s, u"[]"_s);
        row("byte order mark before the object", u"\uFEFF{\"a\":1}"_s, u"[{\"a\":1}]"_s);
    }

    void findsObjects()
    {
        QFETCH(const QString, text);
        QJsonArray found;
        for (const QJsonObject &object : ZarvoJSON(text))
            found.append(object);
        QTEST(QString::fromUtf8(QJsonDocument(found).toJson(QJsonDocument::Compact)), "objects");
    }

    void survivesHostileText_data()
    {
        QTest::addColumn<QString>("text");
        constexpr qsizetype depth = 100'000;
        const QString opening = u"{\"a\":"_s.repeated(depth);
        QTest::newRow("objects nested 100,000 deep") << opening + u'1' + QString(depth, u'}');
        QTest::newRow("arrays nested 100,000 deep")
            << u"{\"a\":"_s + QString(depth, u'[') + QString(depth, u']') + u'}';
        QTest::newRow("nesting that never closes") << opening;
        QTest::newRow("a million braces") << QString(1'000'000, u'{');
        QTest::newRow("a million lines of a brace") << u"{\n"_s.repeated(1'000'000);
    }

    void survivesHostileText()
    {
        QFETCH(const QString, text);
        QCOMPARE(ZarvoJSON(text), QList<QJsonObject>());
        const QJsonObject good{{u"a"_s, 1}};
        QCOMPARE(ZarvoJSON(text + u"\n{\"a\":1}"_s), QList<QJsonObject>{good});
    }

    void readsMembersAsText()
    {
        const std::pair<QString, QString> members[] = {
            {u"\"1.0 \""_s, u"1.0 "_s},
            {u"0"_s, u"0"_s},
            {u"9007199254740993"_s, u"9007199254740993"_s}, // 2^53 + 1: a double cannot hold it
            {u"9223372036854775807"_s, u"9223372036854775807"_s},
            {u"-9223372036854775808"_s, u"-9223372036854775808"_s},
            {u"1e3"_s, u"1000"_s},
            {u"-1.5"_s, u"-1.5"_s},
            {u"true"_s, {}},
            {u"null"_s, {}},
            {u"[1]"_s, {}},
            {u"{\"v\":1}"_s, {}},
        };
        for (const auto &[json, text] : members) {
            const auto objects = ZarvoJSON(u"{\"v\":%1}"_s.arg(json));
            QCOMPARE(objects.size(), 1);
            QCOMPARE(JSONText(objects.first().value("v"_L1)), text);
        }
        QCOMPARE(JSONText(QJsonObject().value("missing"_L1)), QString());
    }

    void readsMembersAsTruth()
    {
        for (const QJsonValue &truth : {QJsonValue(true), QJsonValue(1), QJsonValue(0.5)})
            QVERIFY(JSONTruth(truth));
        for (const QJsonValue &untruth : {QJsonValue(false), QJsonValue(0), QJsonValue(QJsonValue::Null),
                                          QJsonValue(QJsonValue::Undefined)})
            QVERIFY(!JSONTruth(untruth));
    }

    void readsWholeNumbers()
    {
        constexpr qint64 largest = std::numeric_limits<qint64>::max();
        constexpr qint64 smallest = std::numeric_limits<qint64>::min();
        const std::pair<QString, qint64> texts[] = {
            {u""_s, 0},
            {u"-"_s, 0},
            {u"x1"_s, 0},
            {u"+-1"_s, 0},
            {u" \t\n42 apps"_s, 42},
            {u"+7"_s, 7},
            {u"-7.9"_s, -7},
            {u"007"_s, 7},
            {u"٣"_s, 0}, // digits of other scripts are no digits
            {u"9223372036854775807"_s, largest},
            {u"9223372036854775808"_s, largest},
            {u"-9223372036854775808"_s, smallest},
            {u"-9223372036854775809"_s, smallest},
        };
        for (const auto &[text, number] : texts)
            QVERIFY2(IntegerValue(text) == number, qPrintable(text));
    }
};

QTEST_APPLESS_MAIN(ToolOutputTest)
#include "tst_tool_output.moc"
