// What one platform offers for the choice of keyboard layouts: one definition is built on each.
#pragma once

#include "signin/input_source.h"

#include <memory>

/// Null when this session has none. Main thread, after the application object is made.
std::unique_ptr<InputSource> PlatformInputSource();
