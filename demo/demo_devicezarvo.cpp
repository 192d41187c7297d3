// Stands in for the device tool: the same command line and the same replies, about phones that do not exist.
#include "demo_catalog.h"
#include "demo_state.h"
#include "ipa/ipa_validation.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QVersionNumber>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int kAskingTime = 150;              // an answer of a phone, ms
constexpr int kReadingTime = 500;             // of the list of apps, ms
constexpr qint64 kBytesPerMillisecond = 5000; // over the cable
constexpr int kShortestInstall = 1500;        // ms
constexpr int kLongestInstall = 6000;

int reply(const QJsonObject &object, int status = 0)
{
    const QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    return status;
}

int fail(const QString &error)
{
    return reply({{"error"_L1, error}}, 1);
}

void pass(int milliseconds)
{
    QThread::msleep(static_cast<unsigned long>(demoMilliseconds(milliseconds)));
}

int devices(const DemoCatalog &catalog)
{
    pass(kAskingTime);
    QJsonArray list;
    for (const DemoPhone &phone : catalog.phones)
        list.append(QJsonObject{{"id"_L1, phone.id}, {"name"_L1, phone.name}, {"ios"_L1, phone.ios}});
    return reply({{"devices"_L1, list}});
}

int details(const QList<QPair<QString, QString>> &lines)
{
    pass(kAskingTime);
    QJsonArray list;
    for (const auto &[label, value] : lines)
        list.append(QJsonObject{{"label"_L1, label}, {"value"_L1, value}});
    return reply({{"details"_L1, list}});
}

/// The row of an installed app. One that the catalogue does not have came from a file of the user's own: of
/// it the phone knows no more than the file told.
QJsonObject appRow(const DemoApp *app, const QString &id, const QString &version)
{
    QJsonObject row{{"id"_L1, id}, {"name"_L1, app ? app->name : id}, {"version"_L1, version}};
    if (!app)
        return row;
    if (app->phoneKnowsStoreID)
        row["storeID"_L1] = app->storeID;
    if (const QString number = app->storeVersionID(version); !number.isEmpty())
        row["storeVersionID"_L1] = number;
    if (!app->licenseAccount.isEmpty())
        row["licenseAccount"_L1] = app->licenseAccount;
    return row;
}

int apps(const DemoCatalog &catalog, const DemoPhone &phone)
{
    pass(kReadingTime);
    QMap<QString, QString> installed = phone.apps;
    installed.insert(installedSince(phone.id));
    QJsonArray list;
    for (auto app = installed.begin(); app != installed.end(); ++app)
        list.append(appRow(catalog.app(app.key()), app.key(), app.value()));
    return reply({{"apps"_L1, list}});
}

int refuse(const QString &error)
{
    return reply({{"success"_L1, false}, {"error"_L1, error}}, 1);
}

int install(const DemoCatalog &catalog, const DemoPhone &phone, const QString &path)
{
    const auto transfer =
        static_cast<int>(std::min(QFileInfo(path).size() / kBytesPerMillisecond, qint64{kLongestInstall}));
    pass(std::max(transfer, kShortestInstall));
    const auto info = ZarvoValidateIPA(QFile::encodeName(path).toStdString());
    if (!info)
        return refuse(u"Файл IPA повреждён или не распознан."_s);
    const DemoApp *app = catalog.app(info->id);
    if (app && QVersionNumber::fromString(phone.ios) < QVersionNumber::fromString(app->minimumIOS))
        return refuse(u"Нужна более новая версия iOS."_s);
    if (!rememberInstalled(phone.id, info->id, info->version))
        return refuse(u"На телефоне не хватает места."_s);
    return reply({{"success"_L1, true}});
}

int run(const QStringList &words)
{
    const DemoCatalog catalog = readDemoCatalog();
    const QString command = words.value(0);
    if (words == QStringList{u"devices"_s})
        return devices(catalog);
    const qsizetype expected = command == "install"_L1 ? 3 : 2;
    if (words.size() != expected)
        return fail(u"Непонятная команда."_s);
    const DemoPhone *phone = catalog.phone(words[1]);
    if (!phone)
        return fail(u"Связь с телефоном прервалась. Проверьте кабель и повторите."_s);
    if (command == "apps"_L1)
        return apps(catalog, *phone);
    if (command == "info"_L1)
        return details(phone->info);
    if (command == "battery"_L1)
        return details(phone->battery);
    if (command == "install"_L1)
        return install(catalog, *phone, words[2]);
    return fail(u"Непонятная команда."_s);
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    return run(QCoreApplication::arguments().mid(1));
}
