#include "signin/secret_clipboard.h"

#include <QGuiApplication>

using namespace Qt::StringLiterals;

namespace {

bool isOurs(QClipboard::Mode mode)
{
    const QClipboard *clipboard = QGuiApplication::clipboard();
    return mode == QClipboard::Selection ? clipboard->ownsSelection() : clipboard->ownsClipboard();
}

} // namespace

SecretText SecretFromClipboard(QClipboard::Mode mode)
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN)
    // Our own would have to be answered by this thread, which waits.
    if (QGuiApplication::platformName() == "xcb"_L1 && !isOurs(mode))
        return SelectionOfX11(mode);
#endif
    QString text = QGuiApplication::clipboard()->text(mode);
    SecretText secret(text);
    WipeMemory(text.data(), static_cast<std::size_t>(text.size()) * sizeof(QChar));
    return secret;
}
