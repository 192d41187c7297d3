#include "staging_names.h"

#include <QList>

namespace {

constexpr QByteArrayView kPrefix = "zarvo-";
constexpr QByteArrayView kSuffix = ".ipa";
constexpr qint64 kLongestUse = 3600; // s; an installation ends long before

} // namespace

QByteArray StagingName(qint64 seconds, qint64 process)
{
    return kPrefix.toByteArray() + QByteArray::number(seconds) + '-' + QByteArray::number(process) +
           kSuffix.toByteArray();
}

bool IsAbandonedUpload(const QByteArray &name, qint64 seconds)
{
    if (!name.startsWith(kPrefix) || !name.endsWith(kSuffix))
        return false;
    bool whole = false;
    const qint64 begun = name.mid(kPrefix.size()).split('-').first().toLongLong(&whole);
    return whole && seconds - begun > kLongestUse;
}
