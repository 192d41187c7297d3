#include "demo_sign_in.h"

#include "demo_catalog.h"

#include <QThread>

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

using namespace Qt::StringLiterals;

namespace {

constexpr int kCheckingTime = 1200; // the store's answer to what was typed, ms
constexpr std::string_view kWrongPassword = "wrong";
constexpr std::string_view kCode = "123456";
constexpr std::size_t kLongestLine = 4096;

// What was typed: in one place, which is overwritten at the end.
class Line
{
public:
    Line() = default;
    ~Line() { ::explicit_bzero(m_bytes.data(), m_bytes.size()); }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void append(char byte)
    {
        if (m_size < m_bytes.size())
            m_bytes[m_size++] = byte;
    }
    void removeLast() { m_size -= m_size > 0 ? 1 : 0; }
    std::string_view text() const { return {m_bytes.data(), m_size}; }

private:
    std::array<char, kLongestLine> m_bytes{};
    std::size_t m_size = 0;
};

// The terminal as it should be for one question. What was typed before it is lost.
class Terminal
{
public:
    explicit Terminal(bool raw)
        : m_there(::tcgetattr(STDIN_FILENO, &m_before) == 0)
    {
        termios during = m_before;
        if (raw)
            ::cfmakeraw(&during);
        if (m_there)
            ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &during);
    }
    ~Terminal()
    {
        if (m_there)
            ::tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    bool isThere() const { return m_there; }

private:
    termios m_before = {};
    bool m_there;
};

void show(const char *text)
{
    std::fputs(text, stderr); // it has no buffer
}

bool readShown(const char *question, Line &line)
{
    const Terminal terminal(false);
    show(question);
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) == 1) {
        if (byte == '\n')
            return true;
        line.append(byte);
    }
    return false;
}

// A star for each character; the terminal itself shows nothing.
bool readMasked(const char *question, Line &line)
{
    enum Key : char { Interrupt = 3, EndOfInput = 4, Backspace = 8, Delete = 127 };
    const Terminal terminal(true);
    show(question);
    for (char byte = 0; ::read(STDIN_FILENO, &byte, 1) == 1;) {
        switch (byte) {
        case '\r':
        case '\n':
            show("\r\n");
            return true;
        case Interrupt:
        case EndOfInput:
            return false;
        case Backspace:
        case Delete:
            show(line.text().empty() ? "" : "\b \b");
            line.removeLast();
            break;
        default:
            line.append(byte);
            show("*");
        }
    }
    return false;
}

bool isLatin(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void askStore()
{
    QThread::msleep(static_cast<unsigned long>(demoMilliseconds(kCheckingTime)));
}

} // namespace

std::optional<QString> holdSignInDialogue(QString &refusal)
{
    Line account;
    Line password;
    Line code;
    const auto refuse = [&](const QString &reason) {
        refusal = reason;
        return std::nullopt;
    };
    if (!Terminal(false).isThere())
        return refuse(u"inappropriate ioctl for device"_s);
    if (!readShown("enter Apple ID (email address or phone number): ", account) ||
        !readMasked("enter password: ", password))
        return refuse(u"EOF"_s);
    askStore();
    if (account.text().empty() || password.text().empty() || password.text() == kWrongPassword ||
        !isLatin(password.text()))
        return refuse(u"the store has rejected the account or the password"_s);
    if (!readShown("enter 2FA code: ", code))
        return refuse(u"EOF"_s);
    askStore();
    if (code.text() != kCode)
        return refuse(u"apple did not complete verification; try a fresh 2FA code"_s);
    return QString::fromUtf8(account.text().data(), static_cast<qsizetype>(account.text().size()));
}
