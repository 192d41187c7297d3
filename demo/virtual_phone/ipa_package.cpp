#include "ipa_package.h"

#include "plist_codec.h"

#include <QList>
#include <QProcess>
#include <QProcessEnvironment>

#include <unistd.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kMaxListing = 64 << 20;
constexpr qsizetype kMaxEntry = 16 << 20;
constexpr int kTimeLimit = 60'000; // ms

/// What unzip prints; nothing when it fails or prints more than `most` bytes.
std::optional<QByteArray> unzip(const QStringList &arguments, qsizetype most)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The names of entries are compared as UTF-8, and nobody's habits may change the command.
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    for (const QString &name : {u"UNZIP"_s, u"UNZIPOPT"_s, u"ZIPINFO"_s, u"ZIPINFOOPT"_s})
        environment.remove(name);
    child.setProcessEnvironment(environment);
    child.setStandardInputFile(QProcess::nullDevice());
    child.setChildProcessModifier([] { ::setsid(); }); // an encrypted entry would ask on the terminal
    child.start(u"unzip"_s, arguments);
    QByteArray output;
    while (output.size() <= most && (child.bytesAvailable() > 0 || child.waitForReadyRead(kTimeLimit)))
        output += child.read(most + 1 - output.size());
    if (output.size() > most) {
        child.kill();
        child.waitForFinished();
        return std::nullopt;
    }
    child.waitForFinished(kTimeLimit);
    const bool good = child.exitStatus() == QProcess::NormalExit && child.exitCode() <= 1;
    return good && child.error() != QProcess::FailedToStart ? std::optional(output) : std::nullopt;
}

bool isAppInfo(const QByteArray &entry)
{
    return entry.startsWith("Payload/") && entry.endsWith(".app/Info.plist") && entry.count('/') == 2;
}

std::optional<QByteArray> entryOf(const QString &path, const QByteArray &entry)
{
    QString pattern;
    for (const QChar c : QString::fromUtf8(entry)) {
        if (u"*?[]\\"_s.contains(c))
            pattern += u'\\';
        pattern += c;
    }
    return unzip({u"-p"_s, path, pattern}, kMaxEntry);
}

} // namespace

std::optional<IpaPackage> readIpaPackage(const QString &path)
{
    const auto listing = unzip({u"-Z1"_s, path}, kMaxListing);
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
