// Phones that send rubbish: the device tool never crashes, never hangs, and always answers with one object.
#include "devicezarvo/phone_fixture.h"

#include <QTest>

#include <array>
#include <deque>
#include <vector>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

/// There are 28 rows: ZARVO_ROUNDS=36 makes a thousand phones, the usual run takes a sample.
int phonesPerRow()
{
    constexpr int sample = 6;
    const int wanted = qEnvironmentVariableIntValue("ZARVO_ROUNDS");
    return wanted > 0 ? wanted : sample;
}

constexpr qsizetype kAtOnce = 12; // most of them wait
// No limit of the tool's tests is longer.
constexpr auto kLongest = 15s;

struct Layer
{
    QLatin1StringView name;
    std::vector<QString> commands; ///< those that speak on it
};

const std::array<Layer, 7> kLayers{{
    {"mux"_L1, {u"devices"_s, u"apps"_s, u"install"_s}},
    {"lockdown"_L1, {u"devices"_s, u"info"_s, u"battery"_s, u"install"_s}},
    {"tls"_L1, {u"info"_s, u"apps"_s, u"install"_s}},
    {"service"_L1, {u"apps"_s, u"battery"_s, u"install"_s}},
    {"afc"_L1, {u"install"_s}},
    {"instproxy"_L1, {u"apps"_s, u"install"_s}},
    {"diagnostics"_L1, {u"battery"_s}},
}};
constexpr std::array kKinds{"flip"_L1, "cut"_L1, "type"_L1, "length"_L1};

QString phoneID(int number)
{
    return u"00008DE0-%1"_s.arg(number, 16, 16, QChar(u'0'));
}

struct Run
{
    std::unique_ptr<QProcess> process;
    std::chrono::steady_clock::time_point begin;
    QByteArray name;
    bool mayCrash = false;
};

} // namespace

class PhoneDamageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void survives_data();
    void survives();

private:
    static void check(Run &run, int &failures, int &affected);
};

void PhoneDamageTest::survives_data()
{
    QTest::addColumn<int>("layer");
    QTest::addColumn<QString>("kind");
    for (int layer = 0; layer < static_cast<int>(kLayers.size()); ++layer) {
        for (const auto kind : kKinds)
            QTest::addRow("%s: %s", kLayers[static_cast<size_t>(layer)].name.data(), kind.data())
                << layer << QString(kind);
    }
}

void PhoneDamageTest::survives()
{
    QFETCH(const int, layer);
    QFETCH(const QString, kind);
    const Layer &damaged = kLayers[static_cast<size_t>(layer)];
    QJsonArray config;
    for (int seed = 0; seed < phonesPerRow(); ++seed) {
        const QJsonObject damage{{"layer"_L1, damaged.name},
                                 {"kind"_L1, kind},
                                 {"seed"_L1, seed},
                                 {"every"_L1, 1 + seed % 4},
                                 {"hold"_L1, seed % 8 == 0}};
        config.append(phone({{"faults"_L1, QJsonObject{{"damage"_L1, damage}}},
                             {"format"_L1, seed % 2 == 0 ? u"xml"_s : u"binary"_s}},
                            phoneID(seed)));
    }
    VirtualPhones phones(config);
    QVERIFY2(phones.isReady(), phones.problem().constData());
    const QString ipa = phones.makeIPA(u"ru.primer.novoe"_s, u"3.5"_s);
    int failures = 0;
    int affected = 0;
    std::deque<Run> runs;
    for (int seed = 0; seed < phonesPerRow(); ++seed) {
        const QString command = damaged.commands[static_cast<size_t>(seed) % damaged.commands.size()];
        QStringList arguments{u"--verbose"_s, command};
        if (command != "devices"_L1)
            arguments.append(phoneID(seed));
        if (command == "install"_L1)
            arguments.append(ipa);
        runs.push_back({phones.start(arguments, Limits::Short), std::chrono::steady_clock::now(),
                        arguments.join(u' ').toUtf8(), damaged.name == "mux"_L1 && command != "devices"_L1});
        if (runs.size() >= kAtOnce) {
            check(runs.front(), failures, affected);
            runs.pop_front();
        }
    }
    for (Run &run : runs)
        check(run, failures, affected);
    QCOMPARE(failures, 0);
    QVERIFY(affected > 0); // else the damage was none
}

void PhoneDamageTest::check(Run &run, int &failures, int &affected)
{
    const ToolRun result = finish(*run.process);
    affected += result.status == 1 || result.output.contains("недоступно") ? 1 : 0;
    const auto time = std::chrono::steady_clock::now() - run.begin;
    const bool crashed = result.diagnostics.contains("crashed");
    // The library falls over damaged pairing records, which come through the service of the cable; a list of
    // phones needs none.
    if (result.isWellFormed() && time < kLongest && (!crashed || run.mayCrash))
        return;
    ++failures;
    qWarning("%s: status %d\n%s\n%s", run.name.constData(), result.status, result.output.constData(),
             result.diagnostics.constData());
}

QTEST_GUILESS_MAIN(PhoneDamageTest)

#include "tst_phone_damage.moc"
