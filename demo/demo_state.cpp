#include "demo_state.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

const QString kInstalled = u"installed.json"_s;
const QString kAccount = u"account.json"_s; // of its own: the two tools may run at once

QString pathOf(const QString &file)
{
    QString folder = qEnvironmentVariable("ZARVO_DEMO_STATE");
    if (folder.isEmpty())
        folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + u"/zarvo-demo"_s;
    return QDir(folder).filePath(file);
}

QJsonObject readState(const QString &name)
{
    QFile file(pathOf(name));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

bool writeState(const QString &name, const QJsonObject &state)
{
    const QString path = pathOf(name);
    QSaveFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(QJsonDocument(state).toJson()) > 0 && file.commit();
}

} // namespace

QMap<QString, QString> installedSince(const QString &phone)
{
    QMap<QString, QString> installed;
    const QJsonObject apps = readState(kInstalled)[phone].toObject();
    for (auto app = apps.begin(); app != apps.end(); ++app)
        installed.insert(app.key(), app.value().toString());
    return installed;
}

bool rememberInstalled(const QString &phone, const QString &app, const QString &version)
{
    QJsonObject state = readState(kInstalled);
    QJsonObject apps = state[phone].toObject();
    apps[app] = version;
    state[phone] = apps;
    return writeState(kInstalled, state);
}

QString signedInAccount()
{
    return readState(kAccount)["email"_L1].toString();
}

bool rememberAccount(const QString &account)
{
    return writeState(kAccount, {{"email"_L1, account}});
}
