#include "signin/secret_text.h"

#include <QStringEncoder>

#include <string.h> // explicit_bzero and memset_s are not in <cstring>'s namespace

#include <algorithm>

void WipeMemory(void *bytes, std::size_t size)
{
    if (size == 0)
        return;
#ifdef __APPLE__
    ::memset_s(bytes, size, 0, size);
#else
    ::explicit_bzero(bytes, size);
#endif
}

SecretText::SecretText(QStringView text)
    : m_units(text.utf16(), text.utf16() + text.size())
{
}

void SecretText::replace(qsizetype position, qsizetype count, QStringView text)
{
    const auto removed = m_units.begin() + position;
    const auto behind = std::move(removed + count, m_units.end(), removed);
    const auto left = static_cast<std::size_t>(behind - m_units.begin());
    WipeMemory(m_units.data() + left, static_cast<std::size_t>(count) * sizeof(char16_t));
    m_units.resize(left);
    m_units.insert(m_units.begin() + position, text.utf16(), text.utf16() + text.size());
}

void SecretText::clear()
{
    WipeMemory(m_units.data(), m_units.size() * sizeof(char16_t));
    m_units.clear();
}

SecretBytes SecretLine(QStringView text)
{
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    SecretBytes line(static_cast<std::size_t>(encoder.requiredSpace(text.size())) + 1);
    char *end = encoder.appendToBuffer(line.data(), text);
    *end++ = '\n';
    line.resize(static_cast<std::size_t>(end - line.data()));
    return line;
}
