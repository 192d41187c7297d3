#include "app/windowed_mode.h"
#include "core/child_process.h"
#include "core/end_signals.h"
#include "core/private_folder.h"
#include "core/result_line.h"
#include "core/self_test.h"
#include "core/standard_streams.h"
#include "ipa/ipa_validation.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string_view>

using namespace Qt::StringLiterals;

namespace {

// A file system that does not answer must not keep the signal waiting.
constexpr std::chrono::seconds kForRemoval{2};

// Who has begun to leave keeps it: work that fails because its folder goes away must not end the program
// first.
std::mutex g_leaving;

void leaveNothingBehind(int signal)
{
    g_leaving.lock();
    PrivateFolder::removeAll(kForRemoval);
    ChildProcess::killAll();
    EndBySignal(signal);
}

int verify(const char *file, const char *bundleID)
{
    OnEndSignals(leaveNothingBehind);
    Error error;
    const auto info = ZarvoValidateIPA(file, QString::fromUtf8(bundleID), &error);
    g_leaving.lock();
    g_leaving.unlock(); // what is printed may wait for its reader: a signal ends that, too
    if (!info) {
        std::fprintf(stderr, "%s\n", error.message.toUtf8().constData());
        return 1;
    }
    return PrintResult(u"Verified "_s + info->id + u", version "_s + info->version) ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    ReplaceMissingStandardStreams();
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (argc == 4 && mode == "--verify-ipa")
        return verify(argv[2], argv[3]);
    if (argc > 1 && mode == "--self-test")
        return ZarvoSelfTest();
    return RunWindow(argc, argv);
}
