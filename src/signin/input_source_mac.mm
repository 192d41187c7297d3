#include "signin/input_source_platform.h"

#include <Carbon/Carbon.h>

#include <type_traits>

namespace {

struct Release
{
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Release>;

QString identifierOf(const Owned<TISInputSourceRef> &source)
{
    if (!source)
        return {};
    return QString::fromCFString(
        static_cast<CFStringRef>(TISGetInputSourceProperty(source.get(), kTISPropertyInputSourceID)));
}

// The Text Input Source services. Their notification comes on the main thread.
class MacInputSource final : public InputSource
{
public:
    MacInputSource()
    {
        CFNotificationCenterAddObserver(
            CFNotificationCenterGetDistributedCenter(), this, &MacInputSource::notify,
            kTISNotifySelectedKeyboardInputSourceChanged, nullptr,
            CFNotificationSuspensionBehaviorDeliverImmediately);
    }

    ~MacInputSource() override
    {
        CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), this);
    }

    QString current() override
    {
        return identifierOf(Owned<TISInputSourceRef>(TISCopyCurrentKeyboardInputSource()));
    }

    QString english() override
    {
        return identifierOf(Owned<TISInputSourceRef>(TISCopyInputSourceForLanguage(CFSTR("en"))));
    }

    void select(const QString &identifier) override
    {
        const Owned<CFStringRef> name(identifier.toCFString());
        const void *key = kTISPropertyInputSourceID;
        const void *value = name.get();
        const Owned<CFDictionaryRef> wanted(CFDictionaryCreate(
            nullptr, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        const Owned<CFArrayRef> found(TISCreateInputSourceList(wanted.get(), false));
        if (found && CFArrayGetCount(found.get()) > 0)
            TISSelectInputSource((TISInputSourceRef)CFArrayGetValueAtIndex(found.get(), 0));
    }

private:
    static void notify(CFNotificationCenterRef, void *observer, CFNotificationName, const void *,
                       CFDictionaryRef)
    {
        const auto *self = static_cast<MacInputSource *>(observer);
        if (self->changed)
            self->changed();
    }
};

} // namespace

std::unique_ptr<InputSource> PlatformInputSource()
{
    return std::make_unique<MacInputSource>();
}
