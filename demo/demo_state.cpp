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
    return QDir(folder).filePath(u"installed.json"_s);
}

QJsonObject readState()
{
    QFile file(stateFile());
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

} // namespace

QMap<QString, QString> installedSince(const QString &phone)
{
    QMap<QString, QString> installed;
    const QJsonObject apps = readState()[phone].toObject();
    for (auto app = apps.begin(); app != apps.end(); ++app)
        installed.insert(app.key(), app.value().toString());
    return installed;
}

bool rememberInstalled(const QString &phone, const QString &app, const QString &version)
{
    QJsonObject state = readState();
    QJsonObject apps = state[phone].toObject();
    apps[app] = version;
    state[phone] = apps;
    const QString path = stateFile();
    QSaveFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(QJsonDocument(state).toJson()) > 0 && file.commit();
}
