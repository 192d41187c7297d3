#include "signin/secret_clipboard.h"

#include <QStringDecoder>

#include <poll.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{1}; // the window stands still meanwhile
constexpr uint32_t kLongestText = 1 << 14;   // in units of 4 bytes: more than a password may have
// The connection reads in pieces of this size, into a place that it gives back as it is.
constexpr std::size_t kReadBuffer = 4096;

// As what a text is asked for, in turn: programs without the first one are old, or of another toolkit.
struct Target
{
    std::string_view name;
    QStringDecoder::Encoding encoding;
};
constexpr Target kTargets[] = {
    {"UTF8_STRING", QStringDecoder::Utf8},
    {"text/plain;charset=utf-8", QStringDecoder::Utf8},
    {"STRING", QStringDecoder::Latin1},
    {"text/plain", QStringDecoder::Utf8},
};

// What the library has allocated for one answer, overwritten before it is given back.
struct WipeReply
{
    void operator()(xcb_get_property_reply_t *reply) const
    {
        WipeMemory(reply, sizeof *reply + std::size_t{reply->length} * 4);
        std::free(reply);
    }
};
using Reply = std::unique_ptr<xcb_get_property_reply_t, WipeReply>;

struct Free
{
    void operator()(void *memory) const { std::free(memory); }
};
using Event = std::unique_ptr<xcb_generic_event_t, Free>;

SecretText decoded(const xcb_get_property_reply_t &answer, QStringDecoder::Encoding encoding)
{
    QByteArrayView bytes(static_cast<const char *>(::xcb_get_property_value(&answer)),
                         ::xcb_get_property_value_length(&answer));
    if (bytes.endsWith('\0')) // some programs send it along
        bytes.chop(1);
    QStringDecoder decoder(encoding, QStringDecoder::Flag::Stateless);
    std::vector<QChar, WipingAllocator<QChar>> units(
        static_cast<std::size_t>(decoder.requiredSpace(bytes.size())));
    const QChar *end = decoder.appendToBuffer(units.data(), bytes);
    return SecretText(QStringView(units.data(), end));
}

// A connection of its own, on which one selection is asked for.
class Asking
{
public:
    Asking();
    ~Asking();
    Asking(const Asking &) = delete;
    Asking &operator=(const Asking &) = delete;

    SecretText ask(QClipboard::Mode mode);

private:
    xcb_atom_t atom(std::string_view name) const;
    bool convert(xcb_atom_t selection, xcb_atom_t target);
    Reply take() const;
    void overwriteReadBuffer() const;

    xcb_connection_t *m_connection = ::xcb_connect(nullptr, nullptr);
    Clock::time_point m_end = Clock::now() + kPatience;
    xcb_window_t m_window = 0;
    xcb_atom_t m_property = 0;
};

Asking::Asking()
{
    if (::xcb_connection_has_error(m_connection) != 0)
        return;
    const xcb_screen_t *screen = ::xcb_setup_roots_iterator(::xcb_get_setup(m_connection)).data;
    m_window = ::xcb_generate_id(m_connection);
    ::xcb_create_window(m_connection, 0, m_window, screen->root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                        XCB_COPY_FROM_PARENT, 0, nullptr);
    m_property = atom("ZARVO_PASTE");
}

Asking::~Asking()
{
    if (m_window != 0)
        overwriteReadBuffer();
    ::xcb_disconnect(m_connection);
}

xcb_atom_t Asking::atom(std::string_view name) const
{
    const auto cookie = ::xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(name.size()), name.data());
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(
        ::xcb_intern_atom_reply(m_connection, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

// False when nobody holds the selection, or not as this, or when the time is up or the server gone.
bool Asking::convert(xcb_atom_t selection, xcb_atom_t target)
{
    constexpr uint8_t kSentByProgram = 0x80;
    ::xcb_convert_selection(m_connection, m_window, selection, target, m_property, XCB_CURRENT_TIME);
    ::xcb_flush(m_connection);
    for (;;) {
        while (const Event event{::xcb_poll_for_event(m_connection)}) {
            if ((event->response_type & ~kSentByProgram) == XCB_SELECTION_NOTIFY)
                return reinterpret_cast<const xcb_selection_notify_event_t *>(event.get())->property != 0;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_end - Clock::now()).count();
        pollfd server{::xcb_get_file_descriptor(m_connection), POLLIN, 0};
        if (left <= 0 || ::xcb_connection_has_error(m_connection) != 0 ||
            ::poll(&server, 1, static_cast<int>(left)) == 0)
            return false;
    }
}

Reply Asking::take() const
{
    const auto cookie =
        ::xcb_get_property(m_connection, 1, m_window, m_property, XCB_GET_PROPERTY_TYPE_ANY, 0, kLongestText);
    return Reply(::xcb_get_property_reply(m_connection, cookie, nullptr));
}

SecretText Asking::ask(QClipboard::Mode mode)
{
    if (m_window == 0)
        return {};
    const xcb_atom_t selection =
        mode == QClipboard::Selection ? xcb_atom_t{XCB_ATOM_PRIMARY} : atom("CLIPBOARD");
    for (const Target &target : kTargets) {
        if (!convert(selection, atom(target.name)))
            continue;
        // A text that does not fit into one answer comes in another format, or has a rest: it is no password.
        const Reply answer = take();
        if (!answer || answer->format != 8 || answer->bytes_after > 0)
            continue;
        SecretText text = decoded(*answer, target.encoding);
        if (!text.isEmpty())
            return text;
    }
    return {};
}

// An answer that is longer than the buffer fills all of it.
void Asking::overwriteReadBuffer() const
{
    const std::vector<char> filling(2 * kReadBuffer);
    ::xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_window, m_property, XCB_ATOM_STRING, 8,
                          static_cast<uint32_t>(filling.size()), filling.data());
    take();
}

} // namespace

SecretText SelectionOfX11(QClipboard::Mode mode)
{
    return Asking().ask(mode);
}
