// What of the secrets in leak_corpus.txt would be shown: through the rules alone, and with what the program
// knows by itself.
#include "store/diagnostic_redaction.h"

#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kTexts = 300;
constexpr qsizetype kShortestWord = 4; // that gives a secret away
constexpr QLatin1StringView kShown("shown");
constexpr QStringView kOfPlaceholders = u"/Users/ Bearer ";

struct Secret
{
    QString kind;
    QString reading;
};

struct Text
{
    QString printed;       // as the tool prints it
    QString rest;          // what is said beside the secrets
    QList<Secret> secrets; // and what has to stay
};

/// How many secrets of a kind there are, and how many of them are shown.
struct Count
{
    int secrets = 0;
    int byRules = 0;
    int byKnowing = 0;

    bool operator==(const Count &) const = default;
};

/// What the rules let through is no fault of theirs, but has to be known; a change either way is seen here.
/// Of what the program knows nothing may be shown.
const QMap<QString, Count> kExpected{
    {u"account"_s, {43, 21, 0}},    {u"address"_s, {21, 6, 6}},      {u"code"_s, {15, 6, 6}},
    {u"cookie"_s, {14, 3, 3}},      {u"device"_s, {12, 12, 12}},     {u"dsid"_s, {12, 6, 6}},
    {u"guid"_s, {9, 9, 9}},         {u"header"_s, {15, 0, 0}},       {u"home folder"_s, {39, 35, 0}},
    {u"number"_s, {21, 19, 0}},     {u"other account"_s, {7, 4, 4}}, {u"other home"_s, {7, 3, 3}},
    {u"other number"_s, {8, 8, 8}}, {u"password"_s, {23, 6, 6}},     {u"phone"_s, {23, 21, 0}},
    {u"shown"_s, {15, 15, 15}},     {u"token"_s, {45, 6, 6}},        {u"user name"_s, {6, 6, 0}},
};

KnownSecrets parseKnown(const QStringList &lines)
{
    KnownSecrets known;
    const QMap<QString, void (KnownSecrets::*)(const QString &)> adders{
        {u"account"_s, &KnownSecrets::addAccount},
        {u"number"_s, &KnownSecrets::addNumber},
        {u"home folder"_s, &KnownSecrets::addHomeFolder},
        {u"phone"_s, &KnownSecrets::addPhoneIdentifier},
        {u"phone name"_s, &KnownSecrets::addPhoneName}};
    for (const QString &line : lines) {
        if (line.startsWith(u"= "))
            (known.*adders[line.sliced(2).section(u": "_s, 0, 0)])(line.section(u": "_s, 1));
    }
    return known;
}

QString words(int length)
{
    return u"слово и дело "_s.repeated(length).left(length);
}

Text parseText(QString text)
{
    static const QRegularExpression mark(uR"(⟦([^|⟧]+)\|([^|⟧]*)(?:\|([^⟧]*))?⟧)"_s);
    text.replace(u'␛', u'\x1b');
    Text parsed{{}, kOfPlaceholders.toString(), {}};
    qsizetype done = 0;
    const auto copyUpTo = [&](qsizetype end) {
        parsed.printed += text.sliced(done, end - done);
        parsed.rest += text.sliced(done, end - done) + u' ';
    };
    for (auto marks = mark.globalMatch(text); marks.hasNext();) {
        const QRegularExpressionMatch match = marks.next();
        copyUpTo(match.capturedStart());
        done = match.capturedEnd();
        if (match.captured(1) == "fill"_L1) {
            parsed.printed += words(match.captured(2).toInt());
            continue;
        }
        parsed.printed += match.captured(2);
        parsed.secrets.append({match.captured(1), match.captured(match.hasCaptured(3) ? 3 : 2)});
    }
    copyUpTo(text.size());
    return parsed;
}

/// The words by which a secret would be recognised: those that nothing else in the text says; of one that has
/// no words, its halves.
QStringList tellingParts(const Secret &secret, const QString &rest)
{
    if (secret.kind == kShown)
        return {secret.reading};
    static const QRegularExpression separators(u"[^\\p{L}\\p{M}\\p{N}]+|\\x1b\\[[0-9]*m"_s);
    QStringList parts = secret.reading.split(separators, Qt::SkipEmptyParts);
    parts.removeIf([&](const QString &part) { return part.size() < kShortestWord || rest.contains(part); });
    const qsizetype half = secret.reading.size() / 2;
    return parts.isEmpty() ? QStringList{secret.reading.first(half), secret.reading.sliced(half)} : parts;
}

bool isShown(const Secret &secret, const QString &rest, const QString &shown)
{
    const QStringList parts = tellingParts(secret, rest);
    return std::any_of(parts.begin(), parts.end(), [&](const QString &part) { return shown.contains(part); });
}

} // namespace

class LeakCorpusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countsWhatIsShown()
    {
        QFile file(QFINDTESTDATA("leak_corpus.txt"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QStringList texts = QString::fromUtf8(file.readAll()).split(u"\n%%\n"_s);
        const KnownSecrets known = parseKnown(texts.takeFirst().split(u'\n'));
        QCOMPARE(texts.size(), kTexts);

        QMap<QString, Count> counts;
        for (const QString &text : std::as_const(texts)) {
            const Text parsed = parseText(text);
            const ToolResult run{1, parsed.printed, {}, {}};
            const QString byRules = ZarvoSafeStoreDiagnostic(run);
            const QString byKnowing = ZarvoSafeStoreDiagnostic(run, known);
            for (const Secret &secret : parsed.secrets) {
                Count &count = counts[secret.kind];
                const bool isShownByRules = isShown(secret, parsed.rest, byRules);
                const bool isShownByKnowing = isShown(secret, parsed.rest, byKnowing);
                QVERIFY2(isShownByRules || !isShownByKnowing, qUtf8Printable(text));
                ++count.secrets;
                count.byRules += isShownByRules;
                count.byKnowing += isShownByKnowing;
            }
        }
        for (const auto &[kind, count] : counts.asKeyValueRange())
            qInfo("%-14s %3d, shown by the rules alone %3d, with what is known %3d", qUtf8Printable(kind),
                  count.secrets, count.byRules, count.byKnowing);
        QCOMPARE(counts, kExpected);
    }
};

QTEST_GUILESS_MAIN(LeakCorpusTest)
#include "tst_leak_corpus.moc"
