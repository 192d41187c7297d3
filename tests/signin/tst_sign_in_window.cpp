// The sheet itself: its sizes, its keys, what its secret fields keep and give away, and the keyboard layout
// while a password is typed.
#include "app/edit_commands.h"
#include "signin/secret_field.h"
#include "signin/sign_in_fixture.h"
#include "support/rows.h"
#include "views/view_factories.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QInputMethodEvent>
#include <QRandomGenerator>

#include <sys/prctl.h>

#include <array>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString kRefused = u"Кириллица и эмодзи не принимаются. Пароль не изменён."_s;
const QString kEnglish = u"Английская раскладка. Цифры и обычные символы разрешены."_s;
const QString kNothingPasted = u"Вставить не удалось: буфер обмена не отдал текст."_s;
const QString kNoEnglish = u"Добавьте английскую раскладку в настройках клавиатуры Mac."_s;

} // namespace

class SignInWindowTest : public SignInTest
{
    Q_OBJECT

private Q_SLOTS:
    void opensReadyToType()
    {
        QVERIFY(m->open(u"first@example.com"_s));
        QCOMPARE(::prctl(PR_GET_DUMPABLE), 0); // no core dump while it is open
        QCOMPARE(m->window()->windowModality(), Qt::WindowModal);
        QCOMPARE(m->find<QLineEdit>("account")->text(), u"first@example.com"_s);
        QVERIFY(m->find<QLineEdit>("password")->hasFocus());
        QVERIFY(m->isEditing());
        // The Tab key goes from top to bottom.
        const QWidget *next = m->find<QLineEdit>("account");
        for (const char *name : {"account", "password", "code", "resendButton", "helpButton", "startButton",
                                 "codeButton", "cancelButton", "account"}) {
            QCOMPARE(next->objectName(), QLatin1StringView(name));
            do {
                next = next->nextInFocusChain();
            } while (!(next->focusPolicy() & Qt::TabFocus));
        }
        m->press("cancelButton");
        QCOMPARE(::prctl(PR_GET_DUMPABLE), 1);
    }

    void fitsItsFont_data()
    {
        const Rows<int> row; // pixels
        row("26 pixels", 26);
        row("40 pixels, more than the screen holds", 40);
    }

    // Everything is there, nothing is cut off or laid over something else; what the screen has no room for
    // can be scrolled to.
    void fitsItsFont()
    {
        const auto &[pixels] = Row<int>();
        const QFont before = QApplication::font();
        QFont font = before;
        font.setPixelSize(pixels);
        QApplication::setFont(font);
        tool().asks(kCodePrompt);
        QVERIFY(m->open() && m->start());
        EVENTUALLY(m->find<QLineEdit>("code")->isVisible());
        QApplication::processEvents();
        const QDialog *window = m->window();
        const QSize room = window->screen()->availableSize();
        QCOMPARE(window->width(), std::min(Scaled(540), room.width()));
        QVERIFY(window->height() >= std::min(Scaled(440), room.height()));
        for (const char *name : {"account", "password", "keyboardNote", "code", "message"})
            QVERIFY(pixels == 40 || m->find<QWidget>(name)->width() == window->width() - 2 * Scaled(22));
        for (const auto *text : window->findChildren<QLabel *>())
            QVERIFY2(text->height() >= text->heightForWidth(text->width()), qPrintable(text->text()));
        const auto *code = m->find<QLineEdit>("code");
        EVENTUALLY_EQUAL(code->visibleRegion().boundingRect(), code->rect());
        const auto *last = m->find("cancelButton");
        QCOMPARE(last->visibleRegion().boundingRect() == last->rect(), pixels < 40);
        QApplication::setFont(before);
    }

    void enterDoesTheStepAtHand()
    {
        tool().asks(kAccountPrompt).asks(kPasswordPrompt).asks(kCodePrompt).sleeps(60s);
        QVERIFY(m->open(u"a@example.com"_s));
        const auto enter = [&](const char *field) {
            QTest::keyClick(field ? m->find<QWidget>(field) : m->window(), Qt::Key_Return);
            return m->message();
        };
        QCOMPARE(enter("account"), u"Введите аккаунт и пароль латиницей без переносов строк."_s);
        QVERIFY(m->isEditing());
        m->type("password", u"secret"_s);
        enter("password");
        QVERIFY(!m->find("startButton")->isEnabled());
        QVERIFY(!m->window()->focusWidget()); // no button waits for the next key
        enter(nullptr);
        QVERIFY(m->outcomes.isEmpty());
        EVENTUALLY(m->find<QLineEdit>("code")->hasFocus());
        QCOMPARE(enter("code"), u"Введите шестизначный код Apple."_s);
        m->type("code", u"123456"_s);
        QCOMPARE(enter("code"), u"Проверка кода…"_s);
        QCOMPARE(enter(nullptr), u"Проверка кода…"_s); // no step is at hand
        m->find("cancelButton")->setFocus();
        enter("cancelButton"); // but on a button it presses that one
        QCOMPARE(m->outcomes, QList<bool>{false});
    }

    void filterKeepsTheAcceptedPassword_data()
    {
        const Rows<QString, QString> row; // what is pasted, the note
        row("Latin, digits, signs", u"Zz09 ~!"_s, kEnglish);
        row("one Cyrillic letter among Latin ones", u"pаss"_s, kRefused);
        row("line break", u"pass\n"_s, kRefused);
        row("no text", {}, kNothingPasted);
    }

    void filterKeepsTheAcceptedPassword()
    {
        const auto &[pasted, note] = Row<QString, QString>();
        const bool accepted = note == kEnglish;
        QVERIFY(m->open());
        auto *field = m->find<QLineEdit>("password");
        m->type("password", u"before"_s);
        field->setCursorPosition(3);
        QGuiApplication::clipboard()->setText(pasted);
        RunEditCommand(field, EditCommand::Paste);
        QCOMPARE(m->secret("password"), accepted ? u"bef%1ore"_s.arg(pasted) : u"before"_s);
        QCOMPARE(m->note(), note);
        QCOMPARE(field->cursorPosition(), accepted ? 3 + pasted.size() : note == kRefused ? 6 : 3);
        QVERIFY(!field->hasSelectedText());
        QCOMPARE(field->text(), QString(m->secret("password").size(), u'●'));
    }

    void layoutWithoutEnglish()
    {
        QVERIFY(m->open());
        m->keyboard->latin.clear();
        m->find<QLineEdit>("password")->setFocus();
        QCOMPARE(m->note(), kNoEnglish);
        QCOMPARE(m->keyboard->inUse, u"ru"_s);
        m->keyboard->latin = u"us"_s; // the user adds it
        m->keyboard->changed();
        QCOMPARE(m->note(), kEnglish);
        QCOMPARE(m->keyboard->inUse, u"us"_s);
    }

    // The same keys into the field and into a masked line of Qt give the same text.
    void secretFieldEditsLikeALineEdit()
    {
        const auto keys = std::to_array<QKeyCombination>(
            {Qt::Key_Left, Qt::Key_Right, Qt::Key_Home, Qt::Key_End, Qt::SHIFT | Qt::Key_Left,
             Qt::SHIFT | Qt::Key_Home, Qt::CTRL | Qt::Key_Left, Qt::Key_Backspace, Qt::Key_Delete,
             Qt::CTRL | Qt::Key_Backspace, Qt::CTRL | Qt::Key_A, Qt::CTRL | Qt::Key_Z,
             Qt::CTRL | Qt::SHIFT | Qt::Key_Z, Qt::CTRL | Qt::Key_K, Qt::CTRL | Qt::Key_X,
             Qt::CTRL | Qt::Key_V});
        QGuiApplication::clipboard()->setText(u"paste"_s);
        QLineEdit plain;
        SecretField secret;
        plain.setEchoMode(QLineEdit::Password);
        for (QLineEdit *field : {&plain, static_cast<QLineEdit *>(&secret)})
            field->setMaxLength(40);
        QRandomGenerator random(20);
        for (int step = 0; step < 4000; ++step) {
            const bool typing = random.bounded(2) == 0;
            const QChar letter(static_cast<char16_t>(u'a' + random.bounded(26)));
            const QKeyCombination pressed = keys[random.bounded(quint32{keys.size()})];
            for (QWidget *field : {static_cast<QWidget *>(&plain), static_cast<QWidget *>(&secret)}) {
                if (typing)
                    QTest::sendKeyEvent(QTest::Click, field, Qt::Key_unknown, QString(letter),
                                        Qt::NoModifier);
                else
                    QTest::keyClick(field, pressed.key(), pressed.keyboardModifiers());
            }
            QCOMPARE(secret.secret().view(), plain.text());
            QCOMPARE(secret.cursorPosition(), plain.cursorPosition());
            QCOMPARE(secret.selectedText().size(), plain.selectedText().size());
        }
    }

    void secretFieldGivesNothingAway()
    {
        QVERIFY(m->open());
        m->type("password", u"secret"_s);
        auto *field = m->find<QLineEdit>("password");
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

    void secretFieldTakesOtherInput()
    {
        QVERIFY(m->open());
        m->type("password", u"ab"_s);
        auto *field = m->find<QLineEdit>("password");
        QInputMethodEvent composed(u"x"_s, {});
        composed.setCommitString(u"cd"_s);
        QApplication::sendEvent(field, &composed);
        QCOMPARE(m->secret("password"), u"abcd"_s);
        // A keyboard on the screen writes through the interface for assistive tools.
        auto *typing = QAccessible::queryAccessibleInterface(field)->editableTextInterface();
        typing->insertText(1, u"12"_s);
        QCOMPARE(m->secret("password"), u"a12bcd"_s);
        typing->deleteText(0, 2); // it says what is left, not where it took something away
        QCOMPARE(m->secret("password"), QString());
    }
};

QTEST_MAIN(SignInWindowTest)
#include "tst_sign_in_window.moc"
