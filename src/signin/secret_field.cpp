#include "signin/secret_field.h"

#include "signin/secret_clipboard.h"

#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QMenu>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr QChar kStandIn = u'●';

// The line edit's own rule for keys that type something.
bool isTyping(const QKeyEvent &event)
{
    const QString text = event.text();
    if (text.isEmpty())
        return false;
    const Qt::KeyboardModifiers held = event.modifiers();
    if (held == Qt::ControlModifier || held == (Qt::ControlModifier | Qt::ShiftModifier))
        return false;
    return text.front().isPrint() || text.front().isSurrogate();
}

} // namespace

SecretField::SecretField(QWidget *parent)
    : QLineEdit(parent)
{
    setEchoMode(QLineEdit::Password); // also tells input methods and screen readers
    setInputMethodHints(inputMethodHints() | Qt::ImhHiddenText | Qt::ImhSensitiveData |
                        Qt::ImhNoPredictiveText | Qt::ImhNoAutoUppercase);
    setAcceptDrops(false);
    setDragEnabled(false);
    connect(this, &QLineEdit::textEdited, this, [this] { m_byKey = true; }); // comes before textChanged
    connect(this, &QLineEdit::textChanged, this, &SecretField::followLine);
}

void SecretField::setSecret(SecretText secret)
{
    m_secret = std::move(secret);
    showStandIns(m_secret.size());
}

void SecretField::clearSecret()
{
    m_secret.clear();
    showStandIns(0);
}

void SecretField::showStandIns(qsizetype caret)
{
    ++m_ownChange;
    setText(QString(m_secret.size(), kStandIn));
    setCursorPosition(static_cast<int>(caret));
    --m_ownChange;
}

void SecretField::insertSecret(QStringView text)
{
    const bool selected = hasSelectedText();
    const qsizetype position = selected ? selectionStart() : cursorPosition();
    const qsizetype replaced = selected ? selectionLength() : 0;
    const qsizetype room = maxLength() - (m_secret.size() - replaced);
    const QStringView fitting = text.first(std::min(text.size(), room));
    m_secret.replace(position, replaced, fitting);
    ++m_ownChange;
    insert(QString(fitting.size(), kStandIn));
    --m_ownChange;
    Q_EMIT secretEdited();
}

void SecretField::pasteFrom(QClipboard::Mode mode)
{
    const SecretText text = SecretFromClipboard(mode);
    if (text.isEmpty())
        Q_EMIT nothingPasted();
    else
        insertSecret(text.view()); // with its line breaks: to turn them into blanks would be another password
}

// Whatever the line edit did by itself: mostly it removed something.
void SecretField::followLine()
{
    const bool byKey = std::exchange(m_byKey, false);
    if (m_ownChange > 0)
        return;
    const QString line = text();
    const auto isForeign = [](QChar unit) { return unit != kStandIn; };
    const auto first = std::find_if(line.begin(), line.end(), isForeign);
    if (first == line.end()) {
        // One stand-in is like the other, but the caret stands where a key has removed some. Who else removed
        // them cannot say where: nothing is better than a password with the wrong gap.
        const qsizetype removed = m_secret.size() - line.size();
        if (removed > 0 && !byKey)
            clearSecret();
        else if (removed > 0)
            m_secret.replace(std::min<qsizetype>(cursorPosition(), line.size()), removed, {});
        else if (removed < 0)
            showStandIns(m_secret.size());
    } else {
        // A tool of the desktop (a keyboard on the screen) has put text into the line itself.
        const auto last = std::find_if(line.rbegin(), line.rend(), isForeign).base();
        const qsizetype before = std::min<qsizetype>(first - line.begin(), m_secret.size());
        const qsizetype behind = std::min<qsizetype>(line.end() - last, m_secret.size() - before);
        m_secret.replace(before, m_secret.size() - before - behind, QStringView(first, last));
        showStandIns(cursorPosition());
    }
    Q_EMIT secretEdited();
}

void SecretField::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Paste)) {
        const bool ofSelection = event->key() == Qt::Key_Insert && event->modifiers() & Qt::ControlModifier;
        pasteFrom(ofSelection ? QClipboard::Selection : QClipboard::Clipboard);
    } else if (isTyping(*event)) {
        insertSecret(event->text());
    } else {
        QLineEdit::keyPressEvent(event);
    }
}

// Composed text is shown only when it is complete: until then the line would hold it.
void SecretField::inputMethodEvent(QInputMethodEvent *event)
{
    if (!event->commitString().isEmpty())
        insertSecret(event->commitString());
    event->accept();
}

void SecretField::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::MiddleButton) {
        if (QGuiApplication::clipboard()->supportsSelection())
            pasteFrom(QClipboard::Selection);
        return;
    }
    QLineEdit::mouseReleaseEvent(event);
}

void SecretField::contextMenuEvent(QContextMenuEvent *event)
{
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction(u"Вставить"_s, this, &SecretField::paste);
    menu->popup(event->globalPos());
}
