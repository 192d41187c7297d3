#include "ipa_package.h"

#include "plist_codec.h"

#include <QFile>
#include <QList>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr qsizetype kMaxListing = 64 << 20;
constexpr qsizetype kMaxEntry = 16 << 20;
constexpr qsizetype kReadBlock = 64 << 10;

/// The environment without anybody's habits for unzip, and with UTF-8 for the names of entries.
std::vector<char *> environmentForUnzip()
{
    static char locale[] = "LC_ALL=C.UTF-8";
    std::vector<char *> kept{locale};
    for (char **variable = environ; *variable; ++variable) {
        const std::string_view text = *variable;
        if (!text.starts_with("UNZIP") && !text.starts_with("ZIPINFO") && !text.starts_with("LC_ALL="))
            kept.push_back(*variable);
    }
    kept.push_back(nullptr);
    return kept;
}

/// Starts unzip with its output in `output`; 0 when it cannot be started.
pid_t start(std::vector<std::string> arguments, int output)
{
    std::vector<char *> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t broken;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE); // ignored here, but it is to end unzip when nobody reads on
    posix_spawnattr_setsigdefault(&attributes, &broken);
    // In a session of its own it cannot ask for passwords on a terminal.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    if (::posix_spawnp(&child, "unzip", &files, &attributes, pointers.data(), environmentForUnzip().data()) !=
        0)
        child = 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return child;
}

/// What unzip prints; nothing when it fails or prints more than `most` bytes.
std::optional<QByteArray> unzip(const QByteArray &option, const QString &path, const QByteArray &entry,
                                qsizetype most)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    std::vector<std::string> arguments{"unzip", option.toStdString(), QFile::encodeName(path).toStdString()};
    if (!entry.isEmpty())
        arguments.push_back(entry.toStdString());
    const pid_t child = start(arguments, ends[1]);
    ::close(ends[1]);
    QByteArray output;
    QByteArray block(kReadBlock, Qt::Uninitialized);
    for (ssize_t got = 1; got > 0 && output.size() <= most;) {
        got = ::read(ends[0], block.data(), static_cast<size_t>(block.size()));
        output.append(block.constData(), std::max<ssize_t>(got, 0));
    }
    ::close(ends[0]);
    int status = -1;
    const bool ended = child > 0 && ::waitpid(child, &status, 0) == child;
    const bool good = ended && WIFEXITED(status) && WEXITSTATUS(status) <= 1; // 1: warnings
    return good && output.size() <= most ? std::optional(output) : std::nullopt;
}

bool isAppInfo(const QByteArray &entry)
{
    return entry.startsWith("Payload/") && entry.endsWith(".app/Info.plist") && entry.count('/') == 2;
}

std::optional<QByteArray> entryOf(const QString &path, const QByteArray &entry)
{
    QByteArray pattern;
    for (const char c : entry) {
        if (std::strchr("*?[]\\", c))
            pattern += '\\';
        pattern += c;
    }
    return unzip("-p", path, pattern, kMaxEntry);
}

} // namespace

std::optional<IpaPackage> readIpaPackage(const QString &path)
{
    const auto listing = unzip("-Z1", path, {}, kMaxListing);
    if (!listing)
        return std::nullopt;
    const QList<QByteArray> entries = listing->split('\n');
    const auto info = std::find_if(entries.begin(), entries.end(), isAppInfo);
    const auto text = info == entries.end() ? std::nullopt : entryOf(path, *info);
    auto parsed = text ? decodePlist(*text) : std::nullopt;
    if (!parsed)
        return std::nullopt;
    IpaPackage package{*parsed, {}};
    const QByteArray metadata = "iTunesMetadata.plist";
    if (entries.contains(metadata))
        package.metadata = entryOf(path, metadata).value_or(QByteArray());
    return package;
}
