#include "diagnostics.h"

#include <atomic>
#include <chrono>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

const Clock::time_point kStart = Clock::now();
std::atomic<bool> enabled = false;

} // namespace

void EnableDiagnostics()
{
    enabled = true;
}

bool DiagnosticsEnabled() noexcept
{
    return enabled;
}

void Diagnose(const QString &text)
{
    if (!enabled)
        return;
    const std::chrono::duration<double> since = Clock::now() - kStart;
    std::fprintf(stderr, "devicezarvo: %.3f s: %s\n", since.count(), qUtf8Printable(text));
}

void ReportProgress(QLatin1StringView stage, int percent)
{
    std::fprintf(stderr, "{\"percent\":%d,\"stage\":\"%s\"}\n", percent, stage.data());
}
