// The name under which an IPA is saved.
#pragma once

#include <QString>

/// "name-version.ipa": both parts made safe for a file name and cut to 180 and 50 bytes of UTF-8, so that the
/// whole stays below the 255 bytes that file systems take. An unusable or empty part becomes "Приложение" or
/// "без версии". The same app and version always give the same name. Any thread.
QString ZarvoFilename(const QString &name, const QString &version);
