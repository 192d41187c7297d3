// The rules for typing a password: an English layout while it is typed, and only what a terminal carries.
#include "core/password_policy.h"
#include "signin/sign_in_session.h"
#include "signin/sign_in_window.h"

#include <QLabel>

#include <utility>

using namespace Qt::StringLiterals;

void LegacyAuth::beginPassword()
{
    if (passwordEditing)
        return;
    previousInput = m_input->current();
    passwordEditing = true;
    enforceEnglish();
}

void LegacyAuth::enforceEnglish()
{
    if (!passwordEditing || !window->isActiveWindow())
        return;
    const QString english = m_input->english();
    if (english.isEmpty()) {
        keyboardNote->setText(u"Добавьте английскую раскладку в настройках клавиатуры Mac."_s);
        return;
    }
    if (m_input->current() != english)
        m_input->select(english);
    keyboardNote->setText(u"Английская раскладка. Цифры и обычные символы разрешены."_s);
}

// The other windows get the user's own layout back.
void LegacyAuth::appResigned()
{
    if (passwordEditing && !previousInput.isEmpty())
        m_input->select(previousInput);
}

void LegacyAuth::endPassword()
{
    passwordEditing = false;
    const QString before = std::exchange(previousInput, {});
    if (!before.isEmpty() && window->isActiveWindow())
        m_input->select(before);
}

void LegacyAuth::passwordEdited()
{
    if (ZarvoLatin(password->secret().view())) {
        acceptedPassword = password->secret().clone();
        return;
    }
    password->setSecret(acceptedPassword.clone()); // the caret goes to the end
    keyboardNote->setText(u"Кириллица и эмодзи не принимаются. Пароль не изменён."_s);
}
