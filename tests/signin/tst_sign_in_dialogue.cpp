// What the tool's side of the dialogue means, on recorded pieces of it.
#include "signin/sign_in_dialogue.h"
#include "support/rows.h"

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
    void asksFor_data()
    {
        const Rows<QString, DialogueState, Prompt> row;
        const QString account = u"enter Apple ID (email address or phone number):"_s;
        const QString log = u"{\"level\":\"info\",\"message\":\"Подготовка\"}\r\n{\"level\":\"warn\"}\r\n"_s;
        const QString passphrase = u"\r\nenter passphrase to unlock \"/home/a/.ipatool/keychain\" (x): "_s;
        row("nothing yet", {}, kFresh, Prompt::None);
        row("account, between log lines and CR LF", log + account + u" \r\n"_s, kFresh, Prompt::Account);
        row("account, its end still missing", account.chopped(1), kFresh, Prompt::None);
        row("password before the account", u"enter password: "_s, kFresh, Prompt::None);
        row("password", u"\r\nenter password: "_s, kAccountSent, Prompt::Password);
        row("code behind stars", u"************\r\nenter 2FA code: "_s, kBothSent, Prompt::Code);
        row("code without a password prompt", u"enter 2FA code: "_s, kFresh, Prompt::Code);
        row("code while one is awaited", u"enter 2FA code: "_s, kCodeWanted, Prompt::None);
        row("passphrase before anything", passphrase, kFresh, Prompt::Passphrase);
        row("passphrase behind the code", passphrase, kCodeWanted, Prompt::Passphrase);
    }

    void asksFor()
    {
        const auto &[transcript, state, prompt] = Row<QString, DialogueState, Prompt>();
        QCOMPARE(PromptIn(transcript, state), prompt);
    }

    void decodesPieces_data()
    {
        const Rows<QByteArrayList, QString> row;
        // The second byte of the letter is U+0085 in Latin-1, which ends a line.
        row("UTF-8, a letter cut in two", {"{\"name\":\"\xD1", "\x85\"}"}, u"{\"name\":\"х\"}"_s);
        row("Latin-1 for one piece only", {"\xE9t\xE9.", "Имя"}, u"été.Имя"_s);
        row("a cut letter that never comes", {"a\xD1", "b"}, u"aÑb"_s);
    }

    void decodesPieces()
    {
        const auto &[pieces, text] = Row<QByteArrayList, QString>();
        TerminalDecoder decoder;
        QString decoded;
        for (const QByteArray &piece : pieces)
            decoded += decoder.decode(piece);
        QCOMPARE(decoded, text);
    }

    void judgesTheEnd_data()
    {
        const Rows<QString, int, QString> row; // transcript, exit status; what has failed
        const QString code = u"Apple не приняла код. Повторите вход со свежим кодом."_s;
        const QString refused = u"Apple отклонила запрос или ограничила частоту входов. Повторите позже."_s;
        const QString locked =
            u"Хранилище сессии недоступно. Закройте другие копии Zarvo и повторите вход."_s;
        const QString other =
            u"Вход не выполнен. Проверьте пароль, код подтверждения и соединение с Apple."_s;
        row("success", u"*\r\n{\"level\":\"info\"}\r\n{\"email\":\"a@b.c\",\"success\":true}\r\n"_s, 0, {});
        row("success as a text", u"{\"success\":\"true\"}"_s, 0, other);
        row("invalid verification", u"{\"error\":\"Invalid Verification\"}"_s, 1, code);
        row("code and 429: the code", u"HTTP 429: invalid verification"_s, 1, code);
        row("429", u"status 429"_s, 1, refused);
        row("403", u"status 403"_s, 1, refused);
        row("file locked", u"open session: File Locked"_s, 1, locked);
        row("not permitted", u"open: Operation Not Permitted"_s, 1, locked);
    }

    void judgesTheEnd()
    {
        const auto &[transcript, status, failure] = Row<QString, int, QString>();
        QCOMPARE(IsSignedIn(transcript, status) ? QString() : SignInFailure(transcript), failure);
    }

    void acceptsInput_data()
    {
        const Rows<QString, QString, bool> row; // account and password
        row("no account", {}, u"p"_s, false);
        row("Cyrillic password", u"a"_s, u"пароль"_s, false);
        row("password with a line break", u"a"_s, u"p\n"_s, false);
        row("Cyrillic account", u"Почта"_s, u"p"_s, true);
        row("account in two lines", u"a\nb"_s, u"p"_s, false);
        row("both as long as can be", QString(1024, u'a'), QString(4096, u'p'), true);
        row("account of 1025", QString(1025, u'a'), u"p"_s, false);
        row("password of 4097", u"a"_s, QString(4097, u'p'), false);
    }

    void acceptsInput()
    {
        const auto &[account, password, accepted] = Row<QString, QString, bool>();
        QCOMPARE(AreCredentials(account, password), accepted);
    }
};

QTEST_APPLESS_MAIN(SignInDialogueTest)
#include "tst_sign_in_dialogue.moc"
