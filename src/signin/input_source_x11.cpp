#include "signin/input_source_platform.h"

#include <QGuiApplication>
#include <QList>
#include <QSocketNotifier>
#include <QStringList>

#include <algorithm>
#include <array>
#include <bitset>
#include <utility>

// Last: it defines macros with everyday names.
#include <X11/XKBlib.h>
#include <X11/Xatom.h>

using namespace Qt::StringLiterals;

namespace {

// The layouts whose first language is English in the list of xkeyboard-config (rules/evdev.xml,
// languageList).
constexpr std::array kEnglishLayouts{"us"_L1, "gb"_L1, "au"_L1, "nz"_L1, "ie"_L1,
                                     "za"_L1, "ng"_L1, "gh"_L1, "cm"_L1, "ph"_L1};
// Variants for English of layouts for other languages, from the same list.
constexpr std::array kEnglishVariants{"ca(eng)"_L1, "in(eng)"_L1, "ml(us-mac)"_L1, "ml(us-intl)"_L1};

// A layout in one of the keyboard's groups.
struct Group
{
    QString identifier; // "us", "us(dvorak)"
    bool isEnglish = false;
    bool isLatin = false; // all letters from a to z can be typed
};

bool isEnglishLayout(const QString &layout, const QString &identifier)
{
    const auto has = [](const auto &names, const QString &name) {
        return std::any_of(names.begin(), names.end(),
                           [&](QLatin1StringView known) { return known == name; });
    };
    return has(kEnglishLayouts, layout) || has(kEnglishVariants, identifier);
}

struct CloseDisplay
{
    void operator()(Display *display) const { ::XCloseDisplay(display); }
};

struct FreeKeyboard
{
    void operator()(XkbDescPtr keyboard) const { ::XkbFreeKeyboard(keyboard, XkbAllComponentsMask, True); }
};

// A connection of its own: the events that it needs are no business of Qt's, and go with it.
class X11InputSource final : public InputSource
{
public:
    X11InputSource(Display *display, int firstEvent);

    QString current() override;
    QString english() override;
    void select(const QString &identifier) override;

private:
    QList<Group> groups() const;
    QStringList rulesNames() const;
    bool isLatin(XkbDescPtr keyboard, int group) const;
    int currentGroup() const;
    void lookAtEvents();
    void lookAgain();

    std::unique_ptr<Display, CloseDisplay> m_display;
    int m_firstEvent;
    std::unique_ptr<QSocketNotifier> m_notifier; // ends before the display
};

X11InputSource::X11InputSource(Display *display, int firstEvent)
    : m_display(display)
    , m_firstEvent(firstEvent)
    , m_notifier(std::make_unique<QSocketNotifier>(ConnectionNumber(display), QSocketNotifier::Read))
{
    ::XkbSelectEventDetails(display, XkbUseCoreKbd, XkbStateNotify, XkbGroupStateMask, XkbGroupStateMask);
    ::XkbSelectEvents(display, XkbUseCoreKbd, XkbNewKeyboardNotifyMask | XkbMapNotifyMask,
                      XkbNewKeyboardNotifyMask | XkbMapNotifyMask);
    ::XFlush(display);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                     [this] { lookAtEvents(); });
}

// The layouts and their variants, as the session has set them up.
QStringList X11InputSource::rulesNames() const
{
    constexpr long kLongest = 1024; // in units of 4 bytes
    Display *const display = m_display.get();
    const Atom property = ::XInternAtom(display, "_XKB_RULES_NAMES", True);
    if (property == 0)
        return {};
    Atom type = 0;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char *bytes = nullptr;
    if (::XGetWindowProperty(display, DefaultRootWindow(display), property, 0, kLongest, False, XA_STRING,
                             &type, &format, &count, &left, &bytes) != Success)
        return {};
    const QByteArray names(reinterpret_cast<const char *>(bytes), format == 8 ? static_cast<int>(count) : 0);
    ::XFree(bytes);
    return QString::fromLatin1(names).split(u'\0');
}

// The keyboard itself is asked what it types: no list of names knows every layout and variant there is.
bool X11InputSource::isLatin(XkbDescPtr keyboard, int group) const
{
    std::bitset<26> letters;
    for (int code = keyboard->min_key_code; code <= keyboard->max_key_code; ++code) {
        const int groups = XkbKeyNumGroups(keyboard, code);
        if (groups == 0)
            continue;
        const KeySym symbol = XkbKeySymEntry(keyboard, code, 0, group % groups);
        if (symbol >= 'a' && symbol <= 'z')
            letters.set(symbol - 'a');
    }
    return letters.all();
}

QList<Group> X11InputSource::groups() const
{
    enum Name { Rules, Model, Layouts, Variants, Options };
    const std::unique_ptr<XkbDescRec, FreeKeyboard> keyboard(
        ::XkbGetMap(m_display.get(), XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd));
    const QStringList names = rulesNames();
    const QStringList layouts = names.value(Layouts).split(u',');
    const QStringList variants = names.value(Variants).split(u',');
    QList<Group> found;
    for (int i = 0; keyboard && i < std::min<int>(static_cast<int>(layouts.size()), XkbNumKbdGroups); ++i) {
        const QString variant = variants.value(i);
        const QString identifier = variant.isEmpty() ? layouts[i] : u"%1(%2)"_s.arg(layouts[i], variant);
        const bool latin = isLatin(keyboard.get(), i);
        found.append({identifier, latin && isEnglishLayout(layouts[i], identifier), latin});
    }
    return found;
}

int X11InputSource::currentGroup() const
{
    XkbStateRec state = {};
    return ::XkbGetState(m_display.get(), XkbUseCoreKbd, &state) == Success ? state.group : -1;
}

QString X11InputSource::current()
{
    QString identifier = groups().value(currentGroup()).identifier;
    lookAgain();
    return identifier;
}

QString X11InputSource::english()
{
    const QList<Group> all = groups();
    const Group inUse = all.value(currentGroup());
    lookAgain();
    if (inUse.isEnglish)
        return inUse.identifier;
    for (const auto quality : {&Group::isEnglish, &Group::isLatin}) {
        if (quality == &Group::isLatin && inUse.isLatin)
            return inUse.identifier;
        const auto first =
            std::find_if(all.begin(), all.end(), [&](const Group &group) { return group.*quality; });
        if (first != all.end())
            return first->identifier;
    }
    return {};
}

void X11InputSource::select(const QString &identifier)
{
    const QList<Group> all = groups();
    const auto wanted = std::find_if(all.begin(), all.end(),
                                     [&](const Group &group) { return group.identifier == identifier; });
    if (wanted != all.end())
        ::XkbLockGroup(m_display.get(), XkbUseCoreKbd, static_cast<unsigned>(wanted - all.begin()));
    ::XFlush(m_display.get());
    lookAgain();
}

void X11InputSource::lookAtEvents()
{
    bool relevant = false;
    while (::XPending(m_display.get()) > 0) {
        XEvent event;
        ::XNextEvent(m_display.get(), &event);
        relevant = relevant || event.type == m_firstEvent;
    }
    if (relevant && changed)
        changed();
}

// Waiting for an answer also reads the events before it: the descriptor does not announce those any more.
void X11InputSource::lookAgain()
{
    if (::XEventsQueued(m_display.get(), QueuedAlready) > 0)
        QMetaObject::invokeMethod(
            m_notifier.get(), [this] { lookAtEvents(); }, Qt::QueuedConnection);
}

} // namespace

std::unique_ptr<InputSource> PlatformInputSource()
{
    if (QGuiApplication::platformName() != "xcb"_L1)
        return nullptr;
    int firstEvent = 0;
    int major = XkbMajorVersion;
    int minor = XkbMinorVersion;
    int reason = 0;
    Display *const display = ::XkbOpenDisplay(nullptr, &firstEvent, nullptr, &major, &minor, &reason);
    if (!display)
        return nullptr;
    return std::make_unique<X11InputSource>(display, firstEvent);
}
