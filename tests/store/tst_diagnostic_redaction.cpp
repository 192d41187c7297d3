#include "store/diagnostic_redaction.h"
#include "support/rows.h"

using namespace Qt::StringLiterals;

class TestDiagnosticRedaction : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsShownOfTheOutput_data()
    {
        const Rows<QString, QString, QString> row; // standard output, standard error, what is shown
        row("an error goes before a message of level error, whatever their order",
            u"{\"level\":\"error\",\"message\":\"m\"}\n{\"error\":\"reason\"}"_s, u""_s, u"reason"_s);
        row("errors of both outputs are joined, none is dropped for being said twice",
            u"{\"error\":\"one\"}"_s, u"{\"error\":\"two\"}\n{\"error\":\"one\"}"_s, u"one • two • one"_s);
        row("an error that is no text or empty is none: messages of failure are taken",
            u"{\"error\":{},\"success\":0,\"message\":\"a\"}\n{\"error\":\"\",\"level\":\"fatal\",\"message\":\"b\"}"_s,
            u"log: {\"level\":\"panic\",\"message\":\"c\"}"_s, u"a • b • c"_s);
        row("level is compared with its case; a message that is no text takes no part",
            u"{\"level\":\"Error\",\"message\":\"a\"}\n{\"success\":false,\"message\":1}"_s,
            u"{\"level\":\"error\",\"message\":\"b\"}"_s, u"b"_s);
        row("an empty message takes part in the joining",
            u"{\"level\":\"error\",\"message\":\"\"}\n{\"level\":\"error\",\"message\":\"b\"}"_s, u""_s,
            u"• b"_s);
        row("JSON that reports success hides plain lines", u"{\"success\":true,\"message\":\"done\"}"_s,
            u"secret plain line"_s, u""_s);
        row("control and format characters become blanks", u"a\u0007b\u200dc\u00add\ufeff\U000e0041"_s,
            u"\u001be\U0001d173f"_s, u"a b c d e f"_s);
        row("colours go without a trace", u"\u001b[1;31mre\u001b[0md"_s, u""_s, u"red"_s);
        row("a key ends one output and its value begins the other: hidden all the same", u"token="_s,
            u"abc"_s, u"[секрет скрыт]"_s);
    }

    void whatIsShownOfTheOutput()
    {
        const auto &[out, err, shown] = Row<QString, QString, QString>();
        QCOMPARE(ZarvoSafeStoreDiagnostic({.code = 1, .out = out, .err = err, .data = {}}), shown);
    }

    void aLongTextIsCutAfterItIsRedacted()
    {
        const auto shown = [](const QString &err) { return ZarvoSafeStoreDiagnostic({1, {}, err, {}}); };
        QCOMPARE(shown(u"ab "_s.repeated(2000)), u"ab "_s.repeated(467).left(1400));
        // The cut may leave a half of a pair, and a blank at the end.
        QCOMPARE(shown(u'a' + u"\U0001f600"_s.repeated(2500)),
                 u'a' + u"\U0001f600"_s.repeated(700).left(1399));
        QCOMPARE(shown(u"ж"_s.repeated(1399) + u" end"_s), u"ж"_s.repeated(1399) + u' ');
        // A secret that lies across the cut is hidden whole.
        const QString before = u"ж"_s.repeated(1390) + u' ';
        QCOMPARE(shown(before + u"password=0123456789"_s), before + u"[секрет с"_s);
    }

    void knownSecretsAreHidden_data()
    {
        const Rows<QString, QString> row; // the text, what becomes of it
        row("in place of each a word of its kind",
            u"+79165550142 at /srv/Йорик/x on 00008030-001A2D3C0E84802E, /media/Йорик/y"_s,
            u"[аккаунт скрыт] at /Users/[пользователь]/x on [устройство скрыто], /media/[пользователь]/y"_s);
        row("the rest of what a rule hides in part gets no second placeholder",
            u"/Users/Анна Петрова/x for анна.p@mail.example"_s,
            u"/Users/[пользователь]/x for [аккаунт скрыт]"_s);
        row("an address with one inside is hidden whole, and so is a long run",
            u"https://a.example/+79165550142?sig=secret /00008030-001A2D3C0E84802E/0123456789abcdef012345678"_s,
            u"[адрес скрыт] [данные скрыты]"_s);
        row("digits of different numbers are not taken together",
            u"916 items, 555 of 0142; (916) 555-01-42"_s, u"916 items, 555 of 0142; [аккаунт скрыт]"_s);
        row("a short name is hidden as a word only, a phone that is called a phone not at all",
            u"Анна, Аннабель, iPhone 2"_s, u"[устройство скрыто], Аннабель, iPhone 2"_s);
        row("escapes that are none stay", u"100% \\d %zz %d0 %ff \\"_s, u"100% \\d %zz %d0 %ff \\"_s);
        row("half a pair, half a letter: what surrounds them stays",
            QChar(0xd83d) + u"ЙОРИК /srv/йорик"_s + QChar(0xde00),
            QChar(0xd83d) + u"ЙОРИК /Users/[пользователь]"_s + QChar(0xde00));
    }

    void knownSecretsAreHidden()
    {
        const auto &[text, expected] = Row<QString, QString>();
        KnownSecrets known;
        known.addAccount(u" +7 (916) 555-01-42 "_s);
        known.addAccount(u"Анна.P@mail.example"_s);
        known.addHomeFolder(u"/srv/Йорик/"_s);
        known.addHomeFolder(u"/Users/Анна Петрова"_s);
        known.addPhoneIdentifier(u"00008030-001A2D3C0E84802E"_s);
        for (const QString &name : {u"Анна"_s, u"iPhone"_s, u"iPhone 2"_s})
            known.addPhoneName(name);
        // Nothing of this is worth hiding, and none of it may hide everything.
        for (const QString &trivial : {u""_s, u" "_s, u"/"_s, u"a"_s, u"123"_s, u"недоступно"_s}) {
            known.addHomeFolder(trivial == "недоступно"_L1 ? QString() : trivial);
            known.addPhoneIdentifier(trivial);
            known.addNumber(trivial);
        }
        QCOMPARE(RedactSecrets(text, known), expected);
    }
};

QTEST_GUILESS_MAIN(TestDiagnosticRedaction)
#include "tst_diagnostic_redaction.moc"
