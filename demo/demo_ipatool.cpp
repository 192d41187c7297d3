// Stands in for the store's command-line tool: the same command line and the same replies, from the made-up
// catalogue.
#include "demo_catalog.h"
#include "demo_sign_in.h"
#include "demo_state.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kAskingTime = 600;       // the store's answer to a question, ms
constexpr int kShortestLoading = 2500; // of one download, ms
constexpr int kLongestLoading = 8000;
constexpr qint64 kBytesPerMillisecond = 2000;
constexpr int kPause = 50; // between two pieces of a download, ms
constexpr int kLargestPage = 1000;

/// One line on standard output: with JSON asked for, the tool's log goes there too.
int print(QJsonObject line, bool success)
{
    line["level"_L1] = success ? u"info"_s : u"error"_s;
    line["time"_L1] = QDateTime::currentDateTime().toOffsetFromUtc(0).toString(Qt::ISODate);
    const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    return success ? 0 : 1;
}

int fail(const QString &error)
{
    return print({{"error"_L1, error}, {"success"_L1, false}}, false);
}

void pass(int milliseconds)
{
    QThread::msleep(static_cast<unsigned long>(demoMilliseconds(milliseconds)));
}

int confirm(const DemoCatalog &catalog, const QString &account)
{
    return print({{"email"_L1, account}, {"name"_L1, catalog.accountName}, {"success"_L1, true}}, true);
}

int signedOut()
{
    return fail(u"failed to get account: the specified item could not be found in the keyring"_s);
}

int authInfo(const DemoCatalog &catalog)
{
    pass(kAskingTime);
    const QString account = signedInAccount();
    return account.isEmpty() ? signedOut() : confirm(catalog, account);
}

int authLogin(const DemoCatalog &catalog, bool mayAsk)
{
    QString refusal = u"the stand-in signs in by asking only"_s;
    const std::optional<QString> account = mayAsk ? holdSignInDialogue(refusal) : std::nullopt;
    if (!account)
        return fail(refusal);
    if (!rememberAccount(*account))
        return fail(u"failed to save the account"_s);
    return confirm(catalog, *account);
}

int authRevoke()
{
    if (!rememberAccount({}))
        return fail(u"failed to remove the account"_s);
    return print({{"success"_L1, true}}, true);
}

int listPurchases(const DemoCatalog &catalog, const QCommandLineParser &options)
{
    pass(kAskingTime);
    if (signedInAccount().isEmpty())
        return signedOut();
    const int page = options.value(u"page"_s).toInt();
    const int perPage = std::clamp(options.value(u"max-results"_s).toInt(), 0, kLargestPage);
    if (page < 1 || perPage < 1)
        return fail(u"page and max-results must be positive"_s);
    QJsonArray apps;
    for (const DemoPurchase &bought : catalog.purchases.mid(qsizetype{page - 1} * perPage, perPage)) {
        apps.append(QJsonObject{{"id"_L1, bought.storeID},
                                {"bundleID"_L1, bought.id},
                                {"name"_L1, bought.name},
                                {"version"_L1, bought.version},
                                {"price"_L1, 0}});
    }
    return print({{"apps"_L1, apps},
                  {"count"_L1, apps.size()},
                  {"page"_L1, page},
                  {"totalCount"_L1, catalog.purchases.size()}},
                 true);
}

/// Copies the IPA piece by piece, in the time that its size deserves.
bool load(QFile &from, QFile &to)
{
    const auto whole =
        std::clamp(static_cast<int>(from.size() / kBytesPerMillisecond), kShortestLoading, kLongestLoading);
    const qint64 pieces = std::max(1, demoMilliseconds(whole) / kPause);
    const qint64 piece = from.size() / pieces + 1;
    while (!from.atEnd()) {
        const QByteArray bytes = from.read(piece);
        if (bytes.isEmpty() || to.write(bytes) != bytes.size() || !to.flush())
            return false;
        QThread::msleep(kPause);
    }
    return true;
}

/// Loads into OUTPUT.tmp and writes OUTPUT from it when all of it is there.
int deliver(const QString &ipa, const QString &output)
{
    QFile from(ipa);
    QFile loading(output + u".tmp"_s);
    if (!from.open(QIODevice::ReadOnly))
        return fail(u"failed to open the app in the store: %1"_s.arg(from.errorString()));
    if (!loading.open(QIODevice::WriteOnly | QIODevice::Truncate) || !load(from, loading))
        return fail(u"failed to write %1: %2"_s.arg(loading.fileName(), loading.errorString()));
    loading.close();
    QFile::remove(output);
    if (!QFile::copy(loading.fileName(), output))
        return fail(u"failed to write %1"_s.arg(output));
    loading.remove();
    return print({{"output"_L1, output}, {"purchased"_L1, false}, {"success"_L1, true}}, true);
}

int download(const DemoCatalog &catalog, const QCommandLineParser &options)
{
    pass(kAskingTime);
    if (signedInAccount().isEmpty())
        return signedOut();
    const QString bundle = options.value(u"bundle-identifier"_s);
    const qint64 number = options.value(u"app-id"_s).toLongLong();
    if (bundle.isEmpty() && number < 1)
        return fail(u"either the app ID or the bundle identifier must be specified"_s);
    if (!options.isSet(u"output"_s))
        return fail(u"the stand-in has no folder of its own: --output is needed"_s);
    const DemoApp *app = number > 0 ? catalog.app(number) : catalog.app(bundle);
    if (!app)
        return fail(u"app not found"_s);
    if (!app->refusal.isEmpty())
        return fail(app->refusal);
    const QDir ipas(QCoreApplication::applicationDirPath() + u"/../../../ipas"_s);
    const QString version = app->versionFor(options.value(u"external-version-id"_s));
    return deliver(ipas.filePath(demoIPAName(app->id, version)), options.value(u"output"_s));
}

void addOptions(QCommandLineParser &options)
{
    options.addOption({u"non-interactive"_s, u"Ask nothing."_s});
    options.addOptions({
        {u"format"_s, u"Only json is spoken here."_s, u"json"_s},
        {u"page"_s, u"Page of the purchases."_s, u"number"_s, u"1"_s},
        {u"max-results"_s, u"Purchases on a page."_s, u"number"_s, u"100"_s},
        {u"platform"_s, u"Only iphone is known here."_s, u"iphone"_s, u"iphone"_s},
        {u"output"_s, u"File to write."_s, u"path"_s},
        {u"bundle-identifier"_s, u"The app, by its identifier."_s, u"id"_s},
        {u"app-id"_s, u"The app, by its number in the store."_s, u"number"_s},
        {u"external-version-id"_s, u"The store's number of a version."_s, u"number"_s},
    });
    options.addPositionalArgument(u"command"_s,
                                  u"auth login, auth info, auth revoke, list-purchases or download"_s);
    options.addHelpOption();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    addOptions(options);
    options.process(application);
    const QStringList command = options.positionalArguments();
    if (options.value(u"format"_s) != "json"_L1 || options.value(u"platform"_s) != "iphone"_L1) {
        std::fputs("This stand-in speaks --format json about --platform iphone only.\n", stderr);
        return 1;
    }
    const DemoCatalog catalog = readDemoCatalog();
    if (command == QStringList{u"auth"_s, u"info"_s})
        return authInfo(catalog);
    if (command == QStringList{u"auth"_s, u"login"_s})
        return authLogin(catalog, !options.isSet(u"non-interactive"_s));
    if (command == QStringList{u"auth"_s, u"revoke"_s})
        return authRevoke();
    if (command == QStringList{u"list-purchases"_s})
        return listPurchases(catalog, options);
    if (command == QStringList{u"download"_s})
        return download(catalog, options);
    std::fprintf(stderr, "unknown command \"%s\"\n", qUtf8Printable(command.join(u' ')));
    return 1;
}
