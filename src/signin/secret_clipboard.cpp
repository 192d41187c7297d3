#include "signin/secret_clipboard.h"

#include <QGuiApplication>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace {

SecretText fromUtf8(const SecretBytes &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const auto size = static_cast<qsizetype>(bytes.size());
    std::vector<QChar, WipingAllocator<QChar>> units(static_cast<std::size_t>(decoder.requiredSpace(size)));
    const QChar *end = decoder.appendToBuffer(units.data(), QByteArrayView(bytes.data(), size));
    return SecretText(QStringView(units.data(), end));
}

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
    if (QGuiApplication::platformName() == "xcb"_L1 && !isOurs(mode)) {
        const std::optional<SecretBytes> bytes = SelectionOfX11(mode);
        return bytes ? fromUtf8(*bytes) : SecretText();
    }
#endif
    QString text = QGuiApplication::clipboard()->text(mode);
    SecretText secret(text);
    WipeMemory(text.data(), static_cast<std::size_t>(text.size()) * sizeof(QChar));
    return secret;
}
