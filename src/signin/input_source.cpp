#include "signin/input_source.h"

#include "signin/input_source_platform.h"

namespace {

// A desktop that lets no program choose the layout, such as Wayland's.
class NoInputSource final : public InputSource
{
public:
    QString current() override { return {}; }
    QString english() override { return {}; }
    void select(const QString &) override {}
};

} // namespace

std::unique_ptr<InputSource> InputSource::ofThisDesktop()
{
    if (std::unique_ptr<InputSource> source = PlatformInputSource())
        return source;
    return std::make_unique<NoInputSource>();
}
