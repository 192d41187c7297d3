// Passwords, file names, what tools print: functions of texts.
#include "core/ipa_file_naming.h"
#include "core/password_policy.h"
#include "core/self_test.h"
#include "core/tool_output.h"
#include "support/rows.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <limits>

using namespace Qt::StringLiterals;

class TextRulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void acceptsPrintableASCIIPasswordsOnly()
    {
        for (char32_t unit = 0; unit <= 0xFFFF; ++unit) {
            const bool accepted = ZarvoLatin(QString(QChar(static_cast<char16_t>(unit))));
            QVERIFY2(accepted == (unit >= 0x20 && unit <= 0x7E), qPrintable(QString::number(unit, 16)));
        }
        QVERIFY(!ZarvoLatin(u"pаss"_s)); // one letter is Cyrillic
    }

    void selfTestNoticesBrokenRules()
    {
        QVERIFY(SelfTestPasses({ZarvoLatin, ZarvoFilename}));
        for (const bool accepts : {false, true})
            QVERIFY(!SelfTestPasses({[=](QStringView) { return accepts; }, ZarvoFilename}));
        for (const QString &file : {u"Avito-200.5.ipa"_s, u"Авито.ipa"_s})
            QVERIFY(!SelfTestPasses({ZarvoLatin, [=](const QString &, const QString &) { return file; }}));
    }

    void namesFiles_data()
    {
        const Rows<QString, QString, QString> row; // name and version of an app, the file
        row("both missing: fallbacks", {}, {}, u"Приложение-без версии.ipa"_s);
        row("stops around the version: lost", u"App"_s, u".1.2."_s, u"App-1.2.ipa"_s);
        row("placeholders of a format: kept", u"%1 %2"_s, u"%1"_s, u"%1 %2-%1.ipa"_s);
        row("version: 50 bytes", u"App"_s, QString(60, u'1'), u"App-%1.ipa"_s.arg(QString(50, u'1')));
        const auto named = [&](const char *title, const QString &name, const QString &part) {
            row(title, name, u"1"_s, part + u"-1.ipa"_s);
        };
        const auto x = [](int count) { return QString(count, u'x'); };
        const QString fallback = u"Приложение"_s;
        named("forbidden characters become hyphens", u"a/b\\c:d*e?f\"g<h>i|j"_s, u"a-b-c-d-e-f-g-h-i-j"_s);
        named("controls and formats become hyphens", u"a\tb\nc\u0085d\u200De\u202Ef\u00ADg"_s,
              u"a-b-c-d-e-f-g"_s);
        named("blanks collapse, of all kinds", u"  a \u00A0\u2003\u2028 b  "_s, u"a b"_s);
        named("ends trimmed of dots, hyphens and blanks", u".- .a.-b. -."_s, u"a.-b"_s);
        named("half of a pair: the character that stands for it", u"a"_s + QChar(0xD83D) + u"b"_s,
              u"a\uFFFDb"_s);
        named("halves of pairs: bounded as they are on the disk", QString(180, QChar(0xDE42)),
              QString(60, QChar::ReplacementCharacter));
        named("emoji behind a letter that Qt takes pairs apart for: dropped whole",
              u"\u1030"_s + QString(175, u'1') + u"🙂"_s, u"\u1030"_s + QString(175, u'1'));
        named("90 Cyrillic letters of 100", QString(100, u'ж'), QString(90, u'ж'));
        named("emoji across the bound: dropped whole", x(178) + u"🙂"_s, x(178));
        named("emoji that just fits: kept", x(176) + u"🙂y"_s, x(176) + u"🙂"_s);
        named("letter with its accent: dropped whole", x(179) + u"e\u0301"_s, x(179));
        named("flag: dropped whole", x(174) + u"🇷🇺"_s, x(174));
        named("nothing is tried after the first that does not fit", x(179) + u"жz"_s, x(179));
        named("one character of more than 180 bytes", u"e"_s + QString(200, QChar(0x0301)), fallback);
    }

    void namesFiles()
    {
        const auto &[name, version, file] = Row<QString, QString, QString>();
        QCOMPARE(ZarvoFilename(name, version), file);
    }

    void findsObjects_data()
    {
        const Rows<QString, QByteArray> row; // what is printed, the objects in it
        const QByteArray a = "{\"a\":1}";
        const QByteArray both = a + ",{\"b\":2}";
        row("one a line, in their order", u"{\"a\":1}\r\n\r\nnoise\n{\"b\":2}\r\n"_s, both);
        row("all the other line ends",
            u"{\"a\":1}\v{\"a\":1}\f{\"a\":1}\u0085{\"a\":1}\u2028{\"a\":1}\u2029{\"b\":2}"_s,
            a + ',' + a + ',' + a + ',' + a + ',' + both);
        row("over two lines: the whole text", u"{\"a\":\n1}"_s, a);
        row("a line separator within a string", u"{\"a\":\"x\u2028y\"}"_s, "{\"a\":\"x\u2028y\"}");
        row("over two lines beside a whole line: only the line", u"{\"b\":\n1}\n{\"a\":1}"_s, a);
        row("an object within a line of the whole: the inner one", u"{\"b\":\n {\"a\":1}\n}"_s, a);
        row("array around an object: none", u"[{\"a\":1}]"_s, {});
        row("words behind the object: none", u"{\"a\":1} done"_s, {});
        row("a brace in the prefix: none", u"{x} {\"a\":1}"_s, {});
        row("NUL between objects: none", u"{\"a\":1}"_s + QChar::Null + u"{\"b\":2}"_s, {});
        row("byte order mark before the object", u"\uFEFF{\"a\":1}"_s, a);
    }

    void findsObjects()
    {
        const auto &[text, objects] = Row<QString, QByteArray>();
        QJsonArray found;
        for (const QJsonObject &object : ZarvoJSON(text))
            found.append(object);
        QCOMPARE(QJsonDocument(found).toJson(QJsonDocument::Compact), '[' + objects + ']');
    }

    void survivesHostileText()
    {
        constexpr qsizetype depth = 100'000;
        const QString opening = u"{\"a\":"_s.repeated(depth);
        const QString arrays = u"{\"a\":"_s + QString(depth, u'[') + QString(depth, u']') + u'}';
        const QJsonObject good{{u"a"_s, 1}};
        for (const QString &text : {opening + u'1' + QString(depth, u'}'), arrays, opening,
                                    QString(1'000'000, u'{'), u"{\n"_s.repeated(1'000'000)}) {
            QCOMPARE(ZarvoJSON(text), QList<QJsonObject>());
            QCOMPARE(ZarvoJSON(text + u"\n{\"a\":1}"_s), QList<QJsonObject>{good});
        }
    }

    void cutsNoPair()
    {
        const QString fitting(4095, u'x');
        QCOMPARE(JSONText(fitting + u"🙂"_s), fitting);
        QCOMPARE(JSONText(fitting + u"yz"_s), fitting + u'y');
    }

    // Digits of other scripts are no digits.
    void readsWholeNumbers()
    {
        for (const auto &[text, number] : {std::pair(u""_s, qint64{0}),
                                           {u"x1"_s, 0},
                                           {u"+-1"_s, 0},
                                           {u"٣"_s, 0},
                                           {u" \t\n42 apps"_s, 42},
                                           {u"+7"_s, 7},
                                           {u"-7.9"_s, -7},
                                           {u"9223372036854775808"_s, std::numeric_limits<qint64>::max()},
                                           {u"-9223372036854775809"_s, std::numeric_limits<qint64>::min()}})
            QCOMPARE(IntegerValue(text), number);
    }
};

QTEST_APPLESS_MAIN(TextRulesTest)
#include "tst_text_rules.moc"
