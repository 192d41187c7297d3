#include "core/ipa_file_naming.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

class IPAFileNamingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("file");

        const auto row = [](const char *title, const QString &name, const QString &version,
                            const QString &file) { QTest::newRow(title) << name << version << file; };
        const auto named = [](const char *title, const QString &name, const QString &part) {
            QTest::newRow(title) << name << u"1"_s << part + u"-1.ipa"_s;
        };
        row("plain", u"TimeTravel"_s, u"1.5"_s, u"TimeTravel-1.5.ipa"_s);
        row("Cyrillic kept", u"Авито"_s, u"200.5"_s, u"Авито-200.5.ipa"_s);
        row("both missing: fallbacks", {}, {}, u"Приложение-без версии.ipa"_s);
        row("stops around the version: lost", u"App"_s, u".1.2."_s, u"App-1.2.ipa"_s);
        row("placeholders of a format: kept", u"%1 %2"_s, u"%1"_s, u"%1 %2-%1.ipa"_s);
        row("version: 50 bytes", u"App"_s, QString(60, u'1'), u"App-%1.ipa"_s.arg(QString(50, u'1')));

        named("each forbidden character becomes a hyphen", u"a/b\\c:d*e?f\"g<h>i|j"_s,
              u"a-b-c-d-e-f-g-h-i-j"_s);
        named("runs of them are not merged", u"a//b"_s, u"a--b"_s);
        named("nothing but forbidden: fallback", u"???"_s, u"Приложение"_s);
        named("tab, newline and C1 control become hyphens", u"a\tb\nc\u0085d"_s, u"a-b-c-d"_s);
        named("format characters become hyphens", u"a\u200Db\u202Ec\u00ADd"_s, u"a-b-c-d"_s);
        named("blanks collapse, of all kinds", u"  a \u00A0\u2003\u2028 b  "_s, u"a b"_s);
        named("blanks alone: fallback", u" \u3000 "_s, u"Приложение"_s);
        named("ends trimmed of dots, hyphens and blanks", u".- .a.-b. -."_s, u"a.-b"_s);
        named("half of a pair: the character that stands for it", u"a"_s + QChar(0xD83D) + u"b"_s,
              u"a\uFFFDb"_s);
        named("halves of pairs: bounded as they are on the disk", QString(180, QChar(0xDE42)),
              QString(60, QChar::ReplacementCharacter));
        named("parent folder: fallback", u".."_s, u"Приложение"_s);

        named("180 Latin letters of 200", QString(200, u'x'), QString(180, u'x'));
        named("90 Cyrillic letters of 100", QString(100, u'ж'), QString(90, u'ж'));
        named("emoji across the bound: dropped whole", QString(178, u'x') + u"🙂"_s, QString(178, u'x'));
        named("emoji that just fits: kept", QString(176, u'x') + u"🙂y"_s, QString(176, u'x') + u"🙂"_s);
        named("letter with its accent: dropped whole", QString(179, u'x') + u"e\u0301"_s, QString(179, u'x'));
        named("emoji behind a letter that Qt takes pairs apart for: dropped whole",
              u"\u1030"_s + QString(175, u'1') + u"🙂"_s, u"\u1030"_s + QString(175, u'1'));
        named("flag: dropped whole", QString(174, u'x') + u"🇷🇺"_s, QString(174, u'x'));
        named("nothing is tried after the first that does not fit", QString(179, u'x') + u"жz"_s,
              QString(179, u'x'));
        named("cut at a blank: the blank stays", QString(179, u'x') + u" yz"_s, QString(179, u'x') + u' ');
        named("one character of more than 180 bytes: fallback", u"e"_s + QString(200, QChar(0x0301)),
              u"Приложение"_s);
    }

    void namesFiles()
    {
        QFETCH(const QString, name);
        QFETCH(const QString, version);
        QTEST(ZarvoFilename(name, version), "file");
    }

    void isSafeForAnyText()
    {
        constexpr std::array<char16_t, 20> alphabet{u'a',   u'ж',   u' ',   u'.', u'-',   u'/',   u'\\',
                                                    u'\0',  u'\n',  u'%',   u'1', u'|',   0xD83D, 0xDE42,
                                                    0x0301, 0x200D, 0x202E, u'я', 0x4E2D, u'e'};
        QRandomGenerator random(20230817);
        const auto text = [&] {
            QString made;
            for (int left = random.bounded(300); left > 0; --left)
                made += QChar(alphabet[random.bounded(static_cast<quint32>(alphabet.size()))]);
            return made;
        };
        for (int i = 0; i < 5000; ++i) {
            const QString name = text();
            const QString file = ZarvoFilename(name, text());
            QVERIFY2(file.toUtf8().size() <= 235, qPrintable(name));
            const bool clean = std::none_of(file.begin(), file.end(), [](QChar c) {
                return c < u' ' || u"/\\:*?\"<>|\u200D\u202E"_s.contains(c);
            });
            QVERIFY2(clean && !file.startsWith(u'.') && !file.startsWith(u'-'), qPrintable(name));
        }
    }
};

QTEST_APPLESS_MAIN(IPAFileNamingTest)
#include "tst_ipa_file_naming.moc"
