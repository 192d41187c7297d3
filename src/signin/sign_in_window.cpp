#include "signin/sign_in_window.h"

#include "signin/sign_in_session.h"
#include "views/view_factories.h"

#include <QDesktopServices>
#include <QEvent>
#include <QFocusEvent>
#include <QScreen>
#include <QScrollArea>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize kContentSize{540, 440};
constexpr int kSideMargin = 22;
constexpr int kTopMargin = 20;
constexpr int kSheetSpacing = 10;
constexpr double kSheetTitleSize = 20;
constexpr QStringView kCodeHelp = u"https://support.apple.com/ru-ru/102606";
const QString kKeyboardNote =
    u"При вводе пароля включается английская раскладка. Цифры и обычные символы разрешены."_s;
const QString kNothingPasted = u"Вставить не удалось: буфер обмена не отдал текст."_s;

struct StepRow
{
    SignInStep step;
    bool canType;     // account and password, and "Войти"
    bool showsCode;   // the code field with its buttons
    bool canSendCode; // the code's button
};
constexpr StepRow kSteps[] = {
    {SignInStep::Editing, true, false, false},
    {SignInStep::Waiting, false, false, false},
    {SignInStep::Code, false, true, true},
    {SignInStep::Verifying, false, true, false},
};

template <typename Field>
Field *prepared(Field *field, const QString &placeholder, const char *name)
{
    field->setPlaceholderText(placeholder);
    field->setAccessibleName(placeholder);
    field->setObjectName(QLatin1StringView(name));
    field->setAcceptDrops(false); // a file dropped here would leave its address as text
    return field;
}

template <typename Widget>
Widget *named(Widget *widget, const char *name)
{
    widget->setObjectName(QLatin1StringView(name));
    return widget;
}

} // namespace

SignInWindow::SignInWindow(QWidget *parent, QWidget *page)
    : QDialog(parent, Qt::Sheet | Qt::CustomizeWindowHint | Qt::WindowTitleHint)
    , m_room(new QScrollArea)
{
    setObjectName(u"signIn"_s);
    setWindowTitle(u"Вход в Apple Account"_s);
    setWindowModality(Qt::WindowModal);
    m_room->setWidgetResizable(true);
    m_room->setFrameShape(QFrame::NoFrame);
    m_room->setFocusPolicy(Qt::NoFocus);
    m_room->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_room->setWidget(page);
    page->installEventFilter(this);
    auto *whole = new QVBoxLayout(this);
    whole->setContentsMargins({});
    whole->addWidget(m_room);
}

void SignInWindow::focus(QWidget *control)
{
    control->setFocus();
    // What has just been shown or hidden is laid out first.
    QMetaObject::invokeMethod(
        this, [this, control] { m_room->ensureWidgetVisible(control); }, Qt::QueuedConnection);
}

void SignInWindow::reject()
{
    Q_EMIT dismissed();
}

bool SignInWindow::event(QEvent *event)
{
    const bool handled = QDialog::event(event);
    if (event->type() == QEvent::Polish)
        fit();
    return handled;
}

bool SignInWindow::eventFilter(QObject *object, QEvent *event)
{
    if (object == m_room->widget() && event->type() == QEvent::LayoutRequest)
        fit();
    return QDialog::eventFilter(object, event);
}

void SignInWindow::changeEvent(QEvent *event)
{
    QDialog::changeEvent(event);
    if (event->type() == QEvent::ActivationChange)
        Q_EMIT activeChanged(isActiveWindow());
}

// The user cannot resize it: it grows by itself when a message or the font needs more room.
void SignInWindow::fit()
{
    const QSize room = screen()->availableSize();
    const int width = std::min(Scaled(kContentSize.width()), room.width());
    const int needed =
        std::max(Scaled(kContentSize.height()), m_room->widget()->layout()->totalHeightForWidth(width));
    setFixedSize(width, std::min(needed, room.height()));
}

void ZarvoSecurePasswordField::focusInEvent(QFocusEvent *event)
{
    if (focusAction)
        focusAction();
    SecretField::focusInEvent(event);
}

void ZarvoSecurePasswordField::focusOutEvent(QFocusEvent *event)
{
    SecretField::focusOutEvent(event);
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        Q_EMIT editingEnded();
}

void LegacyAuth::buildWindow(QWidget *parent, const QString &proposed)
{
    auto *page = new QWidget;
    window = new SignInWindow(parent, page);
    connect(window, &SignInWindow::dismissed, this, &LegacyAuth::cancel);
    connect(window, &SignInWindow::activeChanged, this,
            [this](bool active) { active ? enforceEnglish() : appResigned(); });
    m_input->changed = [this] { enforceEnglish(); };
    auto *stack = new QVBoxLayout(page);
    stack->setContentsMargins(Scaled(kSideMargin), Scaled(kTopMargin), Scaled(kSideMargin),
                              Scaled(kTopMargin));
    stack->setSpacing(Scaled(kSheetSpacing));
    QLabel *title = ZarvoLabel(u"Вход в Apple Account"_s, true);
    SetFontSize(title, kSheetTitleSize, true);
    stack->addWidget(title);
    stack->addWidget(ZarvoLabel(u"Введите аккаунт, которым получали приложения. Вход обрабатывают ipatool и "
                                "сервисы Apple. Сессия сохраняется в Связке ключей этого Mac."_s,
                                false));
    buildFields(stack, proposed);
    buildButtons(stack);
    stack->addStretch(1);
    enter(SignInStep::Editing);
}

void LegacyAuth::buildFields(QVBoxLayout *stack, const QString &proposed)
{
    account = prepared(new QLineEdit(proposed), u"Email или номер телефона Apple Account"_s, "account");
    password = prepared(new ZarvoSecurePasswordField, u"Пароль Apple Account"_s, "password");
    password->focusAction = [this] { beginPassword(); };
    connect(password, &ZarvoSecurePasswordField::editingEnded, this, &LegacyAuth::endPassword);
    connect(password, &SecretField::secretEdited, this, &LegacyAuth::passwordEdited);
    keyboardNote = named(ZarvoLabel(kKeyboardNote, false), "keyboardNote");
    MakeSecondary(keyboardNote);
    code = prepared(new SecretField, u"Код подтверждения: 6 цифр"_s, "code");
    for (const SecretField *field : std::initializer_list<SecretField *>{password, code}) {
        connect(field, &SecretField::nothingPasted, this, [this] { keyboardNote->setText(kNothingPasted); });
        connect(field, &SecretField::secretEdited, this, [this] {
            if (keyboardNote->text() == kNothingPasted)
                keyboardNote->setText(kKeyboardNote);
        });
    }
    message =
        named(ZarvoLabel(u"Введите логин и пароль локально. Не отправляйте пароль или код в чат."_s, false),
              "message");
    advice = named(ZarvoLabel({}, false), "advice");
    advice->hide();
    for (QWidget *wide :
         std::initializer_list<QWidget *>{account, password, keyboardNote, code, message, advice})
        stack->addWidget(wide);
}

void LegacyAuth::buildButtons(QVBoxLayout *stack)
{
    const auto button = [this](const QString &text, const char *name, void (LegacyAuth::*action)()) {
        return named(ZarvoButton(text, this, action), name);
    };
    resendButton = button(u"Запросить код повторно"_s, "resendButton", &LegacyAuth::resend);
    startButton = button(u"Войти"_s, "startButton", &LegacyAuth::start);
    codeButton = button(u"Подтвердить код"_s, "codeButton", &LegacyAuth::submit);
    stack->addWidget(
        ZarvoRow({resendButton, button(u"Код не приходит?"_s, "helpButton", &LegacyAuth::help)}));
    stack->addWidget(
        ZarvoRow({startButton, codeButton, button(u"Отмена"_s, "cancelButton", &LegacyAuth::cancel)}));
}

void LegacyAuth::show()
{
    (typedAccount().isEmpty() ? account : password)->setFocus();
    window->open();
}

// Enter does the step at hand: the default button is the one that does it.
void LegacyAuth::enter(SignInStep step)
{
    const StepRow &row = *std::find_if(std::begin(kSteps), std::end(kSteps),
                                       [&](const StepRow &known) { return known.step == step; });
    // A control that is disabled or hidden passes its focus on to the next one, and the next key typed would
    // press a button.
    if (QWidget *focused = window->focusWidget())
        focused->clearFocus();
    for (QWidget *control : std::initializer_list<QWidget *>{account, password, startButton})
        control->setEnabled(row.canType);
    for (QWidget *control : std::initializer_list<QWidget *>{code, codeButton, resendButton})
        control->setVisible(row.showsCode);
    codeButton->setEnabled(row.canSendCode);
    resendButton->setEnabled(false); // the watchdog enables it in its time
    startButton->setDefault(row.canType);
    codeButton->setDefault(row.canSendCode);
    if (row.canSendCode)
        window->focus(code);
    else if (row.canType && window->isVisible())
        window->focus(password); // it was wiped and has to be typed again
}

void LegacyAuth::help()
{
    QDesktopServices::openUrl(QUrl(kCodeHelp.toString()));
}
