// The sheet itself: its sizes, its keys, what its secret fields keep and give away, and the keyboard layout
// while a password is typed.
#include "app/view_factories.h"
#include "signin/secret_field.h"
#include "signin/sign_in_fixture.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QInputMethodEvent>
#include <QLayout>
#include <QRandomGenerator>

#include <sys/prctl.h>

#include <array>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString kRefused = u"Кириллица и эмодзи не принимаются. Пароль не изменён."_s;
const QString kEnglish = u"Английская раскладка. Цифры и обычные символы разрешены."_s;
const QString kNoEnglish = u"Добавьте английскую раскладку в настройках клавиатуры Mac."_s;

} // namespace

class SignInWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m = std::make_unique<SignIn>(); }
    void cleanup() { m.reset(); }

    void opensReadyToType();
    void fitsItsFont_data();
    void fitsItsFont();
    void enterDoesTheStepAtHand();
    void filterKeepsTheAcceptedPassword_data();
    void filterKeepsTheAcceptedPassword();
    void layoutWithoutEnglish();
    void startGivesTheLayoutBackFirst();
    void secretFieldEditsLikeALineEdit();
    void secretFieldGivesNothingAway();
    void secretFieldTakesOtherInput();
    void noCoreDumpsWhileOpen();

private:
    std::unique_ptr<SignIn> m;
};

void SignInWindowTest::opensReadyToType()
{
    QVERIFY(m->open(u"first@example.com"_s));
    QCOMPARE(m->window()->windowModality(), Qt::WindowModal);
    QCOMPARE(m->find<QLineEdit>("account")->text(), u"first@example.com"_s);
    QVERIFY(m->find<QLineEdit>("account")->hasFocus());
    QVERIFY(m->isEditing());
    // The Tab key goes from top to bottom and has a name for everything.
    const QWidget *next = m->find<QLineEdit>("account");
    for (const char *name : {"account", "password", "code", "resendButton", "helpButton", "startButton",
                             "codeButton", "cancelButton", "account"}) {
        QCOMPARE(next->objectName(), QLatin1StringView(name));
        const auto *button = qobject_cast<const QPushButton *>(next);
        QVERIFY(!(button ? button->text() : next->accessibleName()).isEmpty());
        do {
            next = next->nextInFocusChain();
        } while (!(next->focusPolicy() & Qt::TabFocus));
    }
}

void SignInWindowTest::fitsItsFont_data()
{
    QTest::addColumn<int>("pixels");
    QTest::newRow("13 pixels") << 13;
    QTest::newRow("16 pixels") << 16;
    QTest::newRow("26 pixels") << 26;
    QTest::newRow("40 pixels, more than the screen holds") << 40;
}

void SignInWindowTest::fitsItsFont()
{
    QFETCH(int, pixels);
    const QFont before = QApplication::font();
    QFont font = before;
    font.setPixelSize(pixels);
    QApplication::setFont(font);
    m->tools.add(u"ipatool"_s).asks(u"enter 2FA code: ");
    QVERIFY(m->open());
    m->start();
    EVENTUALLY(m->find<QLineEdit>("code")->isVisible());
    QApplication::processEvents();
    const QDialog *window = m->window();
    const QSize room = window->screen()->availableSize();
    QCOMPARE(window->width(), std::min(Scaled(540), room.width()));
    QVERIFY(window->height() >= std::min(Scaled(440), room.height()));
    if (pixels < 40) {
        for (const char *name : {"account", "password", "keyboardNote", "code", "message"})
            QCOMPARE(m->find<QWidget>(name)->width(), window->width() - 2 * Scaled(22));
    }
    // Everything is there, nothing is cut off or laid over something else; what the screen has no room for
    // can be scrolled to.
    for (const auto *text : window->findChildren<QLabel *>())
        QVERIFY2(text->height() >= text->heightForWidth(text->width()), qPrintable(text->text()));
    const auto *code = m->find<QLineEdit>("code");
    EVENTUALLY_EQUAL(code->visibleRegion().boundingRect(), code->rect());
    const auto *last = m->find("cancelButton");
    QCOMPARE(last->visibleRegion().boundingRect() == last->rect(), pixels < 40);
    QApplication::setFont(before);
}

void SignInWindowTest::enterDoesTheStepAtHand()
{
    m->tools.add(u"ipatool"_s).asks(kAccountPrompt).asks(kPasswordPrompt).asks(kCodePrompt).sleeps(60s);
    QVERIFY(m->open(u"a@example.com"_s));
    QTest::keyClick(m->find<QLineEdit>("account"), Qt::Key_Return);
    QCOMPARE(m->message(), u"Введите аккаунт и пароль латиницей без переносов строк."_s);
    m->type("password", u"secret"_s);
    QTest::keyClick(m->find<QLineEdit>("password"), Qt::Key_Return);
    QVERIFY(!m->find("startButton")->isEnabled());
    QVERIFY(!m->window()->focusWidget()); // no button waits for the next key
    QTest::keyClick(m->window(), Qt::Key_Return);
    QVERIFY(m->outcomes.isEmpty());
    EVENTUALLY(m->find<QLineEdit>("code")->hasFocus());
    QTest::keyClick(m->find<QLineEdit>("code"), Qt::Key_Return);
    QCOMPARE(m->message(), u"Введите шестизначный код Apple."_s);
    m->type("code", u"123456"_s);
    QTest::keyClick(m->find<QLineEdit>("code"), Qt::Key_Return);
    QCOMPARE(m->message(), u"Проверка кода…"_s);
    QTest::keyClick(m->window(), Qt::Key_Return); // no step is at hand
    QCOMPARE(m->message(), u"Проверка кода…"_s);
    m->find("cancelButton")->setFocus();
    QTest::keyClick(m->find("cancelButton"), Qt::Key_Return); // but on a button it presses that one
    QCOMPARE(m->outcomes, QList<bool>{false});
}

void SignInWindowTest::filterKeepsTheAcceptedPassword_data()
{
    QTest::addColumn<QString>("pasted");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("Latin, digits, signs") << u"Zz09 ~!"_s << true;
    QTest::newRow("one Cyrillic letter among Latin ones") << u"pаss"_s << false;
    QTest::newRow("Cyrillic") << u"пароль"_s << false;
    QTest::newRow("emoji") << u"pass😀"_s << false;
    QTest::newRow("line break") << u"pass\n"_s << false;
}

void SignInWindowTest::filterKeepsTheAcceptedPassword()
{
    QFETCH(QString, pasted);
    QFETCH(bool, accepted);
    QVERIFY(m->open());
    auto *field = m->find<QLineEdit>("password");
    m->type("password", u"before"_s);
    field->setCursorPosition(3);
    QGuiApplication::clipboard()->setText(pasted);
    QTest::keySequence(field, QKeySequence::Paste);
    QCOMPARE(m->secret("password"), accepted ? u"bef%1ore"_s.arg(pasted) : u"before"_s);
    QCOMPARE(m->note(), accepted ? kEnglish : kRefused);
    QCOMPARE(field->cursorPosition(), accepted ? 3 + pasted.size() : 6);
    QVERIFY(!field->hasSelectedText());
    QCOMPARE(field->text().size(), m->secret("password").size());

    m->paste("code", pasted); // not filtered
    QCOMPARE(m->secret("code"), pasted);
}

void SignInWindowTest::layoutWithoutEnglish()
{
    QVERIFY(m->open());
    m->keyboard->latin.clear();
    m->type("password", u"пpароль"_s);
    QCOMPARE(m->note(), kRefused);
    QCOMPARE(m->secret("password"), u"p"_s);
    m->find<QLineEdit>("account")->setFocus();
    m->find<QLineEdit>("password")->setFocus();
    QCOMPARE(m->note(), kNoEnglish);
    QCOMPARE(m->keyboard->inUse, u"ru"_s);
    m->keyboard->latin = u"us"_s; // the user adds it
    m->keyboard->changed();
    QCOMPARE(m->note(), kEnglish);
    QCOMPARE(m->keyboard->inUse, u"us"_s);
}

void SignInWindowTest::startGivesTheLayoutBackFirst()
{
    QVERIFY(
        m->open(u"a@example.com"_s)); // without a tool: the attempt fails and the password is wanted again
    m->type("password", u"secret"_s);
    m->keyboard->selected.clear();
    m->press("startButton");
    QCOMPARE(m->keyboard->selected, (QStringList{u"ru"_s, u"us"_s}));
    QVERIFY(m->find<QLineEdit>("password")->hasFocus());
}

// The same keys into the field and into a masked line of the toolkit give the same text.
void SignInWindowTest::secretFieldEditsLikeALineEdit()
{
    const auto keys = std::to_array<std::pair<Qt::Key, Qt::KeyboardModifiers>>({
        {Qt::Key_Left, {}},
        {Qt::Key_Right, {}},
        {Qt::Key_Home, {}},
        {Qt::Key_End, {}},
        {Qt::Key_Left, Qt::ShiftModifier},
        {Qt::Key_Home, Qt::ShiftModifier},
        {Qt::Key_Left, Qt::ControlModifier},
        {Qt::Key_Backspace, {}},
        {Qt::Key_Delete, {}},
        {Qt::Key_Backspace, Qt::ControlModifier},
        {Qt::Key_A, Qt::ControlModifier},
        {Qt::Key_Z, Qt::ControlModifier},
        {Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier},
        {Qt::Key_K, Qt::ControlModifier},
        {Qt::Key_X, Qt::ControlModifier},
        {Qt::Key_V, Qt::ControlModifier},
    });
    QGuiApplication::clipboard()->setText(u"paste"_s);
    QLineEdit plain;
    plain.setEchoMode(QLineEdit::Password);
    plain.setMaxLength(40);
    SecretField secret;
    secret.setMaxLength(40);
    QRandomGenerator random(20);
    for (int step = 0; step < 4000; ++step) {
        const bool typing = random.bounded(2) == 0;
        const QChar letter(static_cast<char16_t>(u'a' + random.bounded(26)));
        const auto &[key, held] = keys[random.bounded(quint32{keys.size()})];
        for (QWidget *field : {static_cast<QWidget *>(&plain), static_cast<QWidget *>(&secret)}) {
            if (typing)
                QTest::sendKeyEvent(QTest::Click, field, Qt::Key_unknown, QString(letter), Qt::NoModifier);
            else
                QTest::keyClick(field, key, held);
        }
        QCOMPARE(secret.secret().view(), plain.text());
        QCOMPARE(secret.cursorPosition(), plain.cursorPosition());
        QCOMPARE(secret.selectedText().size(), plain.selectedText().size());
    }
}

void SignInWindowTest::secretFieldGivesNothingAway()
{
    QVERIFY(m->open());
    m->type("password", u"secret"_s);
    auto *field = m->find<QLineEdit>("password");
    QCOMPARE(field->text(), u"●●●●●●"_s);
    QCOMPARE(m->find<QLineEdit>("code")->echoMode(), QLineEdit::Password);
    QVERIFY(!field->acceptDrops() && !field->dragEnabled());
    QVERIFY(field->inputMethodHints() & Qt::ImhSensitiveData);

    QGuiApplication::clipboard()->setText(u"mine"_s);
    field->selectAll();
    for (const auto command : {QKeySequence::Copy, QKeySequence::Cut})
        QTest::keySequence(field, QKeySequence(command));
    QCOMPARE(QGuiApplication::clipboard()->text(), u"mine"_s);

    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(field);
    QVERIFY(accessible->state().passwordEdit);
    for (const auto kind : {QAccessible::Name, QAccessible::Value, QAccessible::Description})
        QVERIFY(!accessible->text(kind).contains(u"secret"_s));
    QVERIFY(!accessible->textInterface()->text(0, 6).contains(u"secret"_s));
    QVERIFY(!field->inputMethodQuery(Qt::ImSurroundingText).toString().contains(u"secret"_s));
}

void SignInWindowTest::secretFieldTakesOtherInput()
{
    QVERIFY(m->open());
    m->type("password", u"ab"_s);
    auto *field = m->find<QLineEdit>("password");
    QInputMethodEvent composed(u"x"_s, {});
    composed.setCommitString(u"cd"_s);
    QApplication::sendEvent(field, &composed);
    QCOMPARE(m->secret("password"), u"abcd"_s);
    // A keyboard on the screen writes through the interface for assistive tools.
    QAccessible::queryAccessibleInterface(field)->editableTextInterface()->insertText(1, u"12"_s);
    QCOMPARE(m->secret("password"), u"a12bcd"_s);
    // It says what is left, not where it took something away.
    QAccessible::queryAccessibleInterface(field)->editableTextInterface()->deleteText(0, 2);
    QCOMPARE(m->secret("password"), QString());
    QCOMPARE(field->text(), QString());
}

void SignInWindowTest::noCoreDumpsWhileOpen()
{
    QCOMPARE(::prctl(PR_GET_DUMPABLE), 1);
    QVERIFY(m->open());
    QCOMPARE(::prctl(PR_GET_DUMPABLE), 0);
    m->press("cancelButton");
    QCOMPARE(::prctl(PR_GET_DUMPABLE), 1);
}

QTEST_MAIN(SignInWindowTest)
#include "tst_sign_in_window.moc"
