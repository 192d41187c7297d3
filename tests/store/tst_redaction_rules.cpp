// Holds the hand-written redaction rules against ICU's own regular expressions.
#include "plain_redaction.h"
#include "store/diagnostic_redaction.h"
#include "support/rows.h"

#include <unicode/uniset.h>

#include <array>
#include <memory>
#include <random>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int defaultTexts = 10000;
constexpr quint64 defaultSeed = 20240917;
constexpr int mostFragments = 14;

/// Texts in which the rules match, and nearly match, often.
class RandomTexts
{
public:
    explicit RandomTexts(quint64 seed)
        : m_generator(seed)
    {
        const QString longRun = u"QWxhZGRpbjpvcGVuIHNlc2FtZQ+/=_-.0123456789abcdefghij"_s.left(47);
        m_kinds.append({longRun, longRun + u'A', longRun + u"AA"_s, longRun.left(24), u"/"_s});
        m_kinds.append({QString(QChar(0xd83d)), QString(QChar(0xde00)), u"\u0301"_s, u"\U0001f600"_s});
        for (const char16_t *kind : kinds)
            m_kinds.append(QString::fromUtf16(kind).split(u'|'));
    }

    QString next()
    {
        QString text;
        for (qsizetype left = pick(mostFragments) + 1; left > 0; --left) {
            const QStringList &kind = m_kinds[pick(m_kinds.size())];
            text += kind[pick(kind.size())];
        }
        // A unit is changed now and then: fragments alone would leave most near misses out.
        static const QString units =
            u"aZ0sk@.:=/-_\"',; \t\r\n[%+<\x1b\x85\xa0\u00df\u017f\u212a\u0301\u200d\u2028"_s +
            QChar(0xd800) + QChar(0xdc00);
        if (pick(4) == 0)
            text[pick(text.size())] = units[pick(units.size())];
        return text;
    }

private:
    qsizetype pick(qsizetype count) { return qsizetype(m_generator() % quint64(count)); }

    static constexpr std::array kinds{
        u"password|passwd|pwd|token|passwordToken|access_token|refresh_token|session|dsid|otp|"
        u"verificationCode",
        u"x-apple-|X-Apple-id|x-apple-x-apple-|cookie|Set-Cookie|authorization",
        u"PA\u00dfWORD|se\u1e9eion|\u017fe\u017f\u017fion|to\u212aen|veri\ufb01cationCode|coo\u212aie|"
        u"\u017fet-cookie|acce\u00df_token|http\u017f|pas\ufb06",
        u"cookie:| set-cookie =|Authorization:\n\r\n|a@b.co|a@b.c-d.ef|@x.yz",
        u"=|:| = |: |\u00a0:\u2028|\t=\r\n|==",
        u"=|:|\":\"|'='|\" : |=\"|:'",
        u"\"|'|,|;|<|>",
        u" |\n|\r\n|\r|\u00a0|\u0085|\u2028|\t|\v|\u3000",
        u" |\n",
        u"http|https|itms-services|http://|HTTPS://|itms-services://|://",
        u"Bearer|bearer |BEARER\n|bearer\u00a0\u2028|Bearer  ",
        u"@|.|a.b|@b.co|user%1|.\u017f\u212a|-+|.c|co|@mail.example.org",
        u"/Users/|/home/|/|Users/|/users/|home|/home/anna",
        u"\x1b[|\x1b[31m|\x1b[1;3|\x1b[0 q|m|\x1b|[0m|\x1b[K",
        u"a|Z|0|word|ж|_|-|s|%",
        u"\u200d|\u00ad|\u0903|\ufeff|\U0001d400|\U000e0001|\u203f"};

    QList<QStringList> m_kinds;
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
    std::array<int, redactionExpressions.size()> m_changed{}; ///< how often each rule has changed a text

    /// Compares each rule on the text as it is, and all of them one after the other.
    void compare(const QString &text)
    {
        QString expected = text;
        for (std::size_t rule = 0; rule < redactionExpressions.size(); ++rule) {
            const bool agrees = spansByHand(redactionExpressions[rule], text) == m_engine.spans(rule, text);
            const std::unique_ptr<char[]> shown(QTest::toPrettyUnicode(text));
            QVERIFY2(agrees, (QByteArray(redactionExpressions[rule].name) + ": " + shown.get()).constData());
            const QString before = std::exchange(expected, m_engine.replaced(rule, expected));
            m_changed[rule] += expected != before;
        }
        QCOMPARE(RedactSecrets(text), expected);
    }

private Q_SLOTS:
    /// ZARVO_RANDOM_TEXTS and ZARVO_RANDOM_SEED ask for more texts, and for others.
    void randomTextsComeOutAsFromTheEngine()
    {
        bool given = false;
        const int wanted = qEnvironmentVariableIntValue("ZARVO_RANDOM_TEXTS", &given);
        const int texts = given ? wanted : defaultTexts;
        const quint64 wantedSeed = qEnvironmentVariable("ZARVO_RANDOM_SEED").toULongLong(&given);
        RandomTexts source(given ? wantedSeed : defaultSeed);
        for (int i = 0; i < texts && !QTest::currentTestFailed(); ++i)
            compare(source.next());
        for (std::size_t rule = 0; rule < redactionExpressions.size(); ++rule)
            QVERIFY2(m_changed[rule] >= texts / 50,
                     redactionExpressions[rule].name); // else it is hardly tried
    }

    void everyKindOfCharacterIsSeenAsByTheEngine()
    {
        // All but the letters without case, of which a few stand for the rest, and what is assigned to
        // nothing.
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeSet set(
            UNICODE_STRING_SIMPLE("[[:^Lo:]-[:Co:]-[:Cn:][\\u05d0\\u4e00\\uac00\\U00020000]]"), status);
        QVERIFY(U_SUCCESS(status));
        for (int32_t i = 0; i < set.size() && !QTest::currentTestFailed(); ++i) {
            const char32_t c = char32_t(set.charAt(i));
            compare(textsAround(c < 0x10000 ? QString(QChar(char16_t(c))) : QString::fromUcs4(&c, 1)));
        }
        QVERIFY(set.size() > 15000);
    }

    void longRunsOfOneKindTakeLinearTime_data()
    {
        const Rows<QString, QString, QString> row; // what is repeated, the tail; what is left of the end
        row("address characters, no at sign: one run of data", u"%a.b"_s, u"!"_s, u"%a.b!"_s);
        row("at signs between letters: accounts without a top level stay", u"a@"_s, u"a!"_s, u"a@a@a!"_s);
        row("bearers without a blank behind them stay", u"bearer!"_s, u"!"_s, u"bearer!!"_s);
        row("vendor keys without a separator stay", u"x-apple-%"_s, u"!"_s, u"x-apple-%!"_s);
        row("vendor keys in one run, blanks, no value: data", u"x-apple-"_s, u" ="_s, u"[данные скрыты] ="_s);
        row("blanks before a separator: the password goes", u" "_s, u"=secret"_s, u" =secret"_s);
        row("keys that never get a separator stay", u"password "_s, u"!"_s, u"password !"_s);
        row("one control sequence without an end stays", u"\x1b[;;;; "_s, u"1"_s, u" 1"_s);
        row("combining characters before a word do not hide its start", u"\u0301"_s, u"Bearer x"_s,
            u"\u0301Bearer [скрыто]"_s);
        row("addresses in one run are one address", u"https://"_s, u"a"_s, u"[адрес скрыт]"_s);
    }

    /// With a rule that is not linear a row takes hours, and the test is ended by its time limit.
    void longRunsOfOneKindTakeLinearTime()
    {
        const auto &[unit, tail, expectedEnd] = Row<QString, QString, QString>();
        constexpr qsizetype length = 1'000'000;
        const QString text = unit.repeated(length / unit.size()) + tail;
        QCOMPARE(RedactSecrets(text).right(expectedEnd.size()), expectedEnd);
    }
};

QTEST_GUILESS_MAIN(TestRedactionRules)
#include "tst_redaction_rules.moc"
