// What a phone looks at in an IPA.
#pragma once

#include <QByteArray>
#include <QVariantMap>

#include <optional>

struct IpaPackage
{
    QVariantMap info;    ///< Info.plist of the app in Payload
    QByteArray metadata; ///< iTunesMetadata.plist as it is; may be empty
};

/// Reads the archive with the system's unzip. The last part of `path` may hold no `*`, `?` or `[`: unzip
/// would take it as a pattern. Nothing when the archive is damaged or holds no app.
std::optional<IpaPackage> readIpaPackage(const QString &path);
