#include "staging_names.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kLongestUse = 3600; // s; an installation ends long before

} // namespace

QByteArray StagingName(qint64 seconds, qint64 process)
{
    return "zarvo-" + QByteArray::number(seconds) + '-' + QByteArray::number(process) + ".ipa";
}

bool IsAbandonedUpload(const QByteArray &name, qint64 seconds)
{
    static const QRegularExpression ours(u"\\Azarvo-([0-9]{1,18})-[0-9]+\\.ipa\\z"_s);
    const auto match = ours.match(QString::fromLatin1(name));
    return match.hasMatch() && seconds - match.captured(1).toLongLong() > kLongestUse;
}
