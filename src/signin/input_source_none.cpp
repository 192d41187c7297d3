#include "signin/input_source_platform.h"

std::unique_ptr<InputSource> PlatformInputSource()
{
    return nullptr;
}
