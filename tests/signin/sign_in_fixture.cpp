#include "signin/sign_in_fixture.h"

#include "signin/sign_in_window.h"

#include <QClipboard>
#include <QGuiApplication>

#include <algorithm>

using namespace Qt::StringLiterals;

SignIn::SignIn()
{
    parent.resize(600, 500);
}

bool SignIn::open(const QString &proposed)
{
    auto input = std::make_unique<PlayedKeyboard>();
    keyboard = input.get();
    parent.show();
    auth = std::make_unique<LegacyAuth>(
        &parent, tools.toolPath(u"ipatool"_s), proposed, [this](bool success) { outcomes.append(success); },
        std::move(input), [this] { return now; });
    auth->show();
    return QTest::qWaitForWindowActive(window(), kPatience);
}

bool SignIn::start(const QString &account, const QString &password)
{
    if (!isEditing())
        return false;
    type("account", account);
    paste("password", password);
    press("startButton");
    return true;
}

void SignIn::submit(const QString &code) const
{
    type("code", code);
    press("codeButton");
}

QDialog *SignIn::window() const
{
    return parent.findChild<SignInWindow *>();
}

QString SignIn::secret(const char *name) const
{
    return find<SecretField>(name)->secret().view().toString();
}

void SignIn::type(const char *field, const QString &text) const
{
    auto *line = emptied(field);
    for (const QChar c : text) // the helper that types whole texts knows no characters beyond Latin-1
        QTest::sendKeyEvent(QTest::Click, line, Qt::Key_unknown, QString(c), Qt::NoModifier);
}

void SignIn::paste(const char *field, const QString &text) const
{
    QGuiApplication::clipboard()->setText(text);
    QTest::keySequence(emptied(field), QKeySequence::Paste);
}

QLineEdit *SignIn::emptied(const char *field) const
{
    auto *line = find<QLineEdit>(field);
    line->setFocus();
    line->selectAll();
    QTest::keyClick(line, Qt::Key_Delete);
    return line;
}

void SignIn::press(const char *button) const
{
    QTest::mouseClick(find(button), Qt::LeftButton);
}

bool SignIn::isEditing() const
{
    return window()->isVisible() && find<QLineEdit>("account")->isEnabled() &&
           find<QLineEdit>("password")->isEnabled() && find("startButton")->isEnabled() &&
           !find<QLineEdit>("code")->isVisible() && !find("codeButton")->isVisible() &&
           !find("resendButton")->isVisible();
}

QStringList SignIn::linesRead() const
{
    QStringList lines;
    for (const QJsonObject &event : tools.events(u"ipatool"_s, u"line"))
        lines.append(event.value("text"_L1).toString());
    return lines;
}

QList<pid_t> SignIn::running() const
{
    QList<pid_t> alive = OwnChildren();
    alive.removeIf([](pid_t pid) { return !IsProcessAlive(pid); });
    return alive;
}
