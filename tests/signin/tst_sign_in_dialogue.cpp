// What the tool's side of the dialogue means, on recorded pieces of it.
#include "signin/sign_in_dialogue.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr DialogueState kFresh;
constexpr DialogueState kAccountSent{true, false, false};
constexpr DialogueState kBothSent{true, true, false};
constexpr DialogueState kCodeWanted{true, true, true};

} // namespace

class SignInDialogueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void asksFor_data();
    void asksFor();
    void decodesPieces_data();
    void decodesPieces();
    void keepsTheEndOfALongTranscript();
    void judgesTheEnd_data();
    void judgesTheEnd();
    void acceptsInput_data();
    void acceptsInput();
};

void SignInDialogueTest::asksFor_data()
{
    QTest::addColumn<QString>("transcript");
    QTest::addColumn<DialogueState>("state");
    QTest::addColumn<Prompt>("prompt");
    const QString account = u"enter Apple ID (email address or phone number):"_s;
    const auto row = [](const char *name, const QString &text, DialogueState state, Prompt prompt) {
        QTest::newRow(name) << text << state << prompt;
    };
    row("nothing yet", {}, kFresh, Prompt::None);
    row("account, CR LF behind it", account + u" \r\n"_s, kFresh, Prompt::Account);
    row("account, log lines before it",
        u"{\"level\":\"info\",\"message\":\"Подготовка\"}\r\n{\"level\":\"warn\"}\r\n"_s + account, kFresh,
        Prompt::Account);
    row("account, its end still missing", account.chopped(1), kFresh, Prompt::None);
    row("account, another case of letters", account.toUpper(), kFresh, Prompt::None);
    row("password before the account", u"enter password: "_s, kFresh, Prompt::None);
    row("both at once: the account first", account + u"\r\nenter password: "_s, kFresh, Prompt::Account);
    row("account again, already sent", account, kAccountSent, Prompt::None);
    row("password", u"\r\nenter password: "_s, kAccountSent, Prompt::Password);
    row("code behind the password's stars", u"************\r\nenter 2FA code: "_s, kBothSent, Prompt::Code);
    row("code without a password prompt", u"enter 2FA code: "_s, kFresh, Prompt::Code);
    row("code while one is awaited", u"enter 2FA code: "_s, kCodeWanted, Prompt::None);
    row("passphrase before anything", u"enter passphrase to unlock \"/home/a/.ipatool/keychain\" (x): "_s,
        kFresh, Prompt::Passphrase);
    row("passphrase behind the code", u"\r\nenter passphrase to unlock \"k\":"_s, kCodeWanted,
        Prompt::Passphrase);
}

void SignInDialogueTest::asksFor()
{
    QFETCH(QString, transcript);
    QFETCH(DialogueState, state);
    QFETCH(Prompt, prompt);
    QCOMPARE(PromptIn(transcript, state), prompt);
}

void SignInDialogueTest::decodesPieces_data()
{
    QTest::addColumn<QByteArrayList>("pieces");
    QTest::addColumn<QString>("text");
    QTest::newRow("UTF-8, whole") << QByteArrayList{"Имя", "!"} << u"Имя!"_s;
    // The second byte of the letter is U+0085 in Latin-1, which ends a line.
    QTest::newRow("UTF-8, a letter cut in two")
        << QByteArrayList{"{\"name\":\"\xD1", "\x85\"}"} << u"{\"name\":\"х\"}"_s;
    QTest::newRow("UTF-8, an emoji cut three times")
        << QByteArrayList{"a\xF0", "\x9F", "\x98", "\x80z"} << u"a😀z"_s;
    QTest::newRow("UTF-8, a byte order mark is kept") << QByteArrayList{"\xEF\xBB\xBF{}"} << u"\uFEFF{}"_s;
    QTest::newRow("Latin-1") << QByteArrayList{"caf\xE9!"} << u"café!"_s;
    QTest::newRow("Latin-1 for one piece only") << QByteArrayList{"\xE9t\xE9.", "Имя"} << u"été.Имя"_s;
    QTest::newRow("a cut letter that never comes") << QByteArrayList{"a\xD1", "b"} << u"aÑb"_s;
    QTest::newRow("no start at all") << QByteArrayList{"\x80\x80\x80\x80"} << u"\u0080\u0080\u0080\u0080"_s;
}

void SignInDialogueTest::decodesPieces()
{
    QFETCH(QByteArrayList, pieces);
    TerminalDecoder decoder;
    QString text;
    for (const QByteArray &piece : pieces)
        text += decoder.decode(piece);
    QTEST(text, "text");
}

void SignInDialogueTest::keepsTheEndOfALongTranscript()
{
    QString transcript(32767, u'a');
    AppendToTranscript(transcript, u"b");
    QCOMPARE(transcript.size(), 32768);
    AppendToTranscript(transcript, u"c");
    QCOMPARE(transcript.size(), 16384);
    QVERIFY(transcript.endsWith(u"abc"_s));
}

void SignInDialogueTest::judgesTheEnd_data()
{
    QTest::addColumn<QString>("transcript");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("failure"); // empty: signed in
    const QString code = u"Apple не приняла код. Повторите вход со свежим кодом."_s;
    const QString refused = u"Apple отклонила запрос или ограничила частоту входов. Повторите позже."_s;
    const QString locked = u"Хранилище сессии недоступно. Закройте другие копии Zarvo и повторите вход."_s;
    const QString other = u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple."_s;
    QTest::newRow("success") << u"***\r\n{\"level\":\"info\"}\r\n{\"email\":\"a@b.c\",\"success\":true}\r\n"_s
                             << 0 << QString();
    QTest::newRow("success, another exit status") << u"{\"success\":true}"_s << 1 << other;
    QTest::newRow("exit status 0, no word of success") << u"{\"email\":\"a@b.c\"}"_s << 0 << other;
    QTest::newRow("success as a text") << u"{\"success\":\"true\"}"_s << 0 << other;
    QTest::newRow("invalid verification") << u"{\"error\":\"Invalid Verification\"}"_s << 1 << code;
    QTest::newRow("fresh code") << u"try a Fresh 2FA code"_s << 1 << code;
    QTest::newRow("code and 429: the code") << u"HTTP 429: invalid verification"_s << 1 << code;
    QTest::newRow("429") << u"status 429"_s << 1 << refused;
    QTest::newRow("403") << u"status 403"_s << 1 << refused;
    QTest::newRow("file locked") << u"open session: File Locked"_s << 1 << locked;
    QTest::newRow("not permitted") << u"open: Operation Not Permitted"_s << 1 << locked;
}

void SignInDialogueTest::judgesTheEnd()
{
    QFETCH(QString, transcript);
    QFETCH(int, status);
    QFETCH(QString, failure);
    QCOMPARE(IsSignedIn(transcript, status), failure.isEmpty());
    if (!failure.isEmpty())
        QCOMPARE(SignInFailure(transcript), failure);
}

void SignInDialogueTest::acceptsInput_data()
{
    QTest::addColumn<QString>("account");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("accepted");
    const QString a = u"a@b.c"_s;
    QTest::newRow("plain") << a << u"p w!~"_s << true;
    QTest::newRow("no account") << QString() << u"p"_s << false;
    QTest::newRow("no password") << a << QString() << false;
    QTest::newRow("Cyrillic password") << a << u"пароль"_s << false;
    QTest::newRow("password with a line break") << a << u"p\n"_s << false;
    QTest::newRow("Cyrillic account") << u"Почта"_s << u"p"_s << true;
    QTest::newRow("account in two lines") << u"a\nb"_s << u"p"_s << false;
    QTest::newRow("account of 1024") << QString(1024, u'a') << u"p"_s << true;
    QTest::newRow("account of 1025") << QString(1025, u'a') << u"p"_s << false;
    QTest::newRow("password of 4096") << a << QString(4096, u'p') << true;
    QTest::newRow("password of 4097") << a << QString(4097, u'p') << false;
}

void SignInDialogueTest::acceptsInput()
{
    QFETCH(QString, account);
    QFETCH(QString, password);
    QTEST(AreCredentials(account, password), "accepted");
}

QTEST_APPLESS_MAIN(SignInDialogueTest)
#include "tst_sign_in_dialogue.moc"
