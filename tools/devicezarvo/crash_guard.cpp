#include "crash_guard.h"

#include "answer.h"
#include "diagnostics.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <string_view>

namespace {

constexpr int kCrashes[]{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr std::string_view kNotice = "devicezarvo: the library crashed\n";

// A signal handler reaches nothing but globals.
Answer *guarded = nullptr;
// A stack of its own: the ordinary one may be what has run out.
alignas(std::max_align_t) std::array<std::byte, 1 << 16> handlerStack;

void onCrash(int)
{
    if (DiagnosticsEnabled()) {
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, kNotice.data(), kNotice.size());
    }
    ::_exit(guarded->crash());
}

void useStack(int flags)
{
    stack_t stack = {};
    stack.ss_sp = handlerStack.data();
    stack.ss_size = handlerStack.size();
    stack.ss_flags = flags;
    ::sigaltstack(&stack, nullptr);
}

void handleCrashes(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    // Reset, so that a crash within the handler is the end.
    action.sa_flags = static_cast<int>(SA_ONSTACK | SA_RESETHAND);
    for (const int signal : kCrashes)
        ::sigaction(signal, &action, nullptr);
}

} // namespace

CrashGuard::CrashGuard(Answer &answer)
{
    guarded = &answer;
    useStack(0);
    handleCrashes(onCrash);
}

CrashGuard::~CrashGuard()
{
    handleCrashes(SIG_DFL);
    useStack(SS_DISABLE);
    guarded = nullptr;
}
