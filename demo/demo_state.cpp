#include "demo_state.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

QString stateFile()
{
    QString folder = qEnvironmentVariable("ZARVO_DEMO_STATE");
    if (folder.isEmpty())
        folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + u"/zarvo-demo"_s;
    return QDir(folder).filePath(u"account.json"_s);
}

} // namespace

QString signedInAccount()
{
    QFile file(stateFile());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll())["email"_L1].toString();
}

bool rememberAccount(const QString &account)
{
    const QString path = stateFile();
    QSaveFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(QJsonDocument(QJsonObject{{u"email"_s, account}}).toJson()) > 0 && file.commit();
}
