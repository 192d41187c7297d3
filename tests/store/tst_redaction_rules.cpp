// Holds the hand-written redaction rules against ICU's own regular expressions.
#include "plain_redaction.h"
#include "store/diagnostic_redaction.h"

#include <QTest>

#include <unicode/uniset.h>

#include <array>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int defaultTexts = 10000;
constexpr quint64 defaultSeed = 20240917;
constexpr int mostFragments = 14;

/// Unpaired surrogates and invisible characters must be readable in a failure.
QByteArray escaped(const QString &text)
{
    QByteArray result;
    for (const QChar c : text) {
        if (c.unicode() >= 0x20 && c.unicode() < 0x7f)
            result += char(c.unicode());
        else
            result += "\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0');
    }
    return result;
}

/// Texts in which the rules match, and nearly match, often.
class RandomTexts
{
public:
    explicit RandomTexts(quint64 seed)
        : m_generator(seed)
    {
    }

    QString next()
    {
        QString text;
        for (int left = pick(mostFragments) + 1; left > 0; --left) {
            const QStringList &kind = kinds()[pick(int(kinds().size()))];
            text += kind[pick(int(kind.size()))];
        }
        // A unit is changed now and then: fragments alone would leave most near misses out.
        if (pick(4) == 0)
            text[pick(int(text.size()))] = units()[pick(int(units().size()))];
        return text;
    }

private:
    int pick(int count) { return int(m_generator() % quint64(count)); }

    static const QString &units()
    {
        static const QString all =
            u"aZ0sk@.:=/-_\"',; \t\r\n[%+<\x1b\x85\xa0\u00df\u017f\u212a\u0301\u200d\u2028"_s +
            QChar(0xd800) + QChar(0xdc00);
        return all;
    }

    static const std::vector<QStringList> &kinds()
    {
        static const QString longRun = u"QWxhZGRpbjpvcGVuIHNlc2FtZQ+/=_-.0123456789abcdefghij"_s.left(47);
        static const std::vector<QStringList> all{
            {u"password"_s, u"passwd"_s, u"pwd"_s, u"token"_s, u"passwordToken"_s, u"access_token"_s,
             u"refresh_token"_s, u"session"_s, u"dsid"_s, u"otp"_s, u"verificationCode"_s},
            {u"x-apple-"_s, u"X-Apple-id"_s, u"x-apple-x-apple-"_s, u"cookie"_s, u"Set-Cookie"_s,
             u"authorization"_s},
            {u"PA\u00dfWORD"_s, u"se\u1e9eion"_s, u"\u017fe\u017f\u017fion"_s, u"to\u212aen"_s,
             u"veri\ufb01cationCode"_s, u"coo\u212aie"_s, u"\u017fet-cookie"_s, u"acce\u00df_token"_s,
             u"http\u017f"_s, u"pas\ufb06"_s},
            {u"cookie:"_s, u" set-cookie ="_s, u"Authorization:\n\r\n"_s, u"a@b.co"_s, u"a@b.c-d.ef"_s,
             u"@x.yz"_s},
            {u"="_s, u":"_s, u" = "_s, u": "_s, u"\u00a0:\u2028"_s, u"\t=\r\n"_s, u"=="_s},
            {u"="_s, u":"_s, u"\":\""_s, u"'='"_s, u"\" : "_s, u"=\""_s, u":'"_s},
            {u"\""_s, u"'"_s, u","_s, u";"_s, u"<"_s, u">"_s},
            {u" "_s, u"\n"_s, u"\r\n"_s, u"\r"_s, u"\u00a0"_s, u"\u0085"_s, u"\u2028"_s, u"\t"_s, u"\v"_s,
             u"\u3000"_s},
            {u" "_s, u"\n"_s},
            {u"http"_s, u"https"_s, u"itms-services"_s, u"http://"_s, u"HTTPS://"_s, u"itms-services://"_s,
             u"://"_s},
            {u"Bearer"_s, u"bearer "_s, u"BEARER\n"_s, u"bearer\u00a0\u2028"_s, u"Bearer  "_s},
            {u"@"_s, u"."_s, u"a.b"_s, u"@b.co"_s, u"user%1"_s, u".\u017f\u212a"_s, u"-+"_s, u".c"_s, u"co"_s,
             u"@mail.example.org"_s},
            {u"/Users/"_s, u"/home/"_s, u"/"_s, u"Users/"_s, u"/users/"_s, u"home"_s, u"/home/anna"_s},
            {u"\x1b["_s, u"\x1b[31m"_s, u"\x1b[1;3"_s, u"\x1b[0 q"_s, u"m"_s, u"\x1b"_s, u"[0m"_s,
             u"\x1b[K"_s},
            {longRun, longRun + u'A', longRun + u"AA"_s, longRun.left(24), u"/"_s},
            {u"a"_s, u"Z"_s, u"0"_s, u"word"_s, u"ж"_s, u"_"_s, u"-"_s, u"s"_s, u"%"_s},
            {u"\u0301"_s, u"\u200d"_s, u"\u00ad"_s, u"\u0903"_s, u"\ufeff"_s, u"\U0001f600"_s,
             u"\U0001d400"_s, u"\U000e0001"_s, u"\u203f"_s, QString(QChar(0xd83d)), QString(QChar(0xde00))},
        };
        return all;
    }

    std::mt19937_64 m_generator;
};

/// Where one character decides: within words of every kind, beside them, and in what follows them.
QString textsAround(const QString &character)
{
    static const QString frames =
        u"#Bearer x\nBearer#x\nBea#er x\nBearer x#y\n#cookie:v\ncoo#ie:v\ncookie#:v\n"
        u"#et-cookie:v\nto#en=1\npa#word=1\nveri#cationcode=1\npwd=#\ntoken#=1\notp=a#b\n"
        u"x-apple-#=1\nhttp#://x\n#http://x\nhttp://#y\na#@b.cc\n#@b.cc\na@#.cc\na@b.#c\n"
        u"/home/#a\n/home/a#b\n"_s;
    QString text = frames;
    return text.replace(u'#', character);
}

} // namespace

class TestRedactionRules : public QObject
{
    Q_OBJECT

private:
    RedactionEngine m_engine;

    /// Compares each rule on the text as it is, and all of them one after the other. Counts the rules that
    /// changed it.
    bool agrees(const QString &text, std::array<int, redactionExpressions.size()> &changed)
    {
        QString expected = text;
        for (std::size_t rule = 0; rule < redactionExpressions.size(); ++rule) {
            if (spansByHand(redactionExpressions[rule], text) != m_engine.spans(rule, text)) {
                qWarning("the rule of the %s finds something else in %s", redactionExpressions[rule].name,
                         escaped(text).constData());
                return false;
            }
            const QString before = expected;
            expected = m_engine.replaced(rule, before);
            changed[rule] += expected != before;
        }
        if (const QString actual = RedactSecrets(text); actual != expected) {
            qWarning("%s\nshould become %s\nand becomes   %s", escaped(text).constData(),
                     escaped(expected).constData(), escaped(actual).constData());
            return false;
        }
        return true;
    }

private Q_SLOTS:
    /// ZARVO_RANDOM_TEXTS and ZARVO_RANDOM_SEED ask for more texts, and for others.
    void randomTextsComeOutAsFromTheEngine()
    {
        bool given = false;
        int texts = qEnvironmentVariableIntValue("ZARVO_RANDOM_TEXTS", &given);
        if (!given)
            texts = defaultTexts;
        quint64 seed = qEnvironmentVariable("ZARVO_RANDOM_SEED").toULongLong(&given);
        if (!given)
            seed = defaultSeed;

        RandomTexts source(seed);
        std::array<int, redactionExpressions.size()> changed{};
        for (int i = 0; i < texts; ++i)
            QVERIFY2(agrees(source.next(), changed), qPrintable(u"text %1 of seed %2"_s.arg(i).arg(seed)));
        qInfo("%d texts, seed %llu", texts, static_cast<unsigned long long>(seed));
        for (std::size_t rule = 0; rule < redactionExpressions.size(); ++rule) {
            qInfo("%s: changed %d", redactionExpressions[rule].name, changed[rule]);
            QVERIFY2(changed[rule] >= texts / 50, "the random texts hardly try this rule");
        }
    }

    void everyKindOfCharacterIsSeenAsByTheEngine()
    {
        // All but the letters without case, of which a few stand for the rest, and what is assigned to
        // nothing.
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeSet set(
            UNICODE_STRING_SIMPLE("[[:^Lo:]-[:Co:]-[:Cn:][\\u05d0\\u4e00\\uac00\\U00020000]]"), status);
        QVERIFY(U_SUCCESS(status));
        std::array<int, redactionExpressions.size()> changed{};
        for (int32_t i = 0; i < set.size(); ++i) {
            const char32_t c = char32_t(set.charAt(i));
            const QString character = c < 0x10000 ? QString(QChar(char16_t(c))) : QString::fromUcs4(&c, 1);
            QVERIFY2(agrees(textsAround(character), changed), qPrintable(u"U+%1"_s.arg(uint(c), 4, 16)));
        }
        QVERIFY(set.size() > 15000);
    }

    void longRunsOfOneKindTakeLinearTime_data()
    {
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QString>("tail");
        QTest::addColumn<QString>("expectedEnd"); // what is left of the text's end

        const auto row = [](const char *name, const QString &unit, const QString &tail, const QString &end) {
            QTest::newRow(name) << unit << tail << end;
        };
        row("address characters, no at sign: one run of data", u"%a.b"_s, u"!"_s, u"%a.b!"_s);
        row("at signs between letters: accounts without a top level stay", u"a@"_s, u"a!"_s, u"a@a@a!"_s);
        row("vendor keys without a separator stay", u"x-apple-%"_s, u"!"_s, u"x-apple-%!"_s);
        row("vendor keys in one run, blanks, no value: data", u"x-apple-"_s, u" ="_s, u"[данные скрыты] ="_s);
        row("vendor keys in one run with a value: a secret", u"x-apple-"_s, u"a =v"_s, u"[секрет скрыт]"_s);
        row("blanks before a separator: the password goes", u" "_s, u"=secret"_s, u" =secret"_s);
        row("keys that never get a separator stay", u"password "_s, u"!"_s, u"password !"_s);
        row("quotes: an empty value each", u"otp=\"\""_s, u"!"_s, u"[секрет скрыт]!"_s);
        row("control sequences without an end stay", u"\x1b["_s, u"1"_s, u"\x1b[1"_s);
        row("one control sequence without an end stays", u"\x1b[;;;; "_s, u"1"_s, u" 1"_s);
        row("combining characters before a word do not hide its start", u"\u0301"_s, u"Bearer x"_s,
            u"\u0301Bearer [скрыто]"_s);
        row("bearers without a blank behind them stay", u"bearer!"_s, u"!"_s, u"bearer!!"_s);
        row("header names followed by line ends only stay", u"cookie:\n"_s, u"\n"_s,
            u"[заголовок скрыт]\n\n"_s);
        row("addresses in one run are one address", u"https://"_s, u"a"_s, u"[адрес скрыт]"_s);
        row("home folders", u"/home/a"_s, u" "_s, u"/Users/[пользователь] "_s);
    }

    /// With a rule that is not linear a row takes hours, and the test is ended by its time limit.
    void longRunsOfOneKindTakeLinearTime()
    {
        QFETCH(QString, unit);
        QFETCH(QString, tail);
        QFETCH(QString, expectedEnd);
        constexpr qsizetype length = 1'000'000;
        const QString text = unit.repeated(length / unit.size()) + tail;
        QCOMPARE(RedactSecrets(text).right(expectedEnd.size()), expectedEnd);
    }
};

QTEST_GUILESS_MAIN(TestRedactionRules)
#include "tst_redaction_rules.moc"
