// Waiting in tests of windows.
#pragma once

#include <QTest>

/// Long enough for a slow machine under a sanitizer; only a failing test waits for it.
inline constexpr int kPatience = 20'000;
#define EVENTUALLY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, kPatience)
#define EVENTUALLY_EQUAL(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, kPatience)
