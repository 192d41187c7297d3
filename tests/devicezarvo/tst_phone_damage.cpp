// Phones that send rubbish: the device tool never crashes, never hangs, and always answers with one object.
#include "devicezarvo/phone_fixture.h"
#include "support/rows.h"

#include <QElapsedTimer>

#include <deque>

using namespace Qt::StringLiterals;

namespace {

// There are 28 rows: ZARVO_ROUNDS=36 makes a thousand phones, the usual run takes a sample.
int phonesPerRow()
{
    constexpr int sample = 6;
    const int wanted = qEnvironmentVariableIntValue("ZARVO_ROUNDS");
    return wanted > 0 ? wanted : sample;
}

constexpr std::size_t kAtOnce = 12; // most of them wait
constexpr qint64 kLongest = 15'000; // ms; no limit of the tool's tests is longer

// The layers, and the commands that speak on them.
const std::pair<QString, QString> kLayers[] = {{u"mux"_s, u"devices apps install"_s},
                                               {u"lockdown"_s, u"devices info battery install"_s},
                                               {u"tls"_s, u"info apps install"_s},
                                               {u"service"_s, u"apps battery install"_s},
                                               {u"afc"_s, u"install"_s},
                                               {u"instproxy"_s, u"apps install"_s},
                                               {u"diagnostics"_s, u"battery"_s}};

QString phoneID(int number)
{
    return u"00008DE0-%1"_s.arg(number, 16, 16, QChar(u'0'));
}

struct Run
{
    std::unique_ptr<QProcess> process;
    QElapsedTimer timer;
    bool mayCrash = false;
};

} // namespace

class PhoneDamageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void survives_data()
    {
        const Rows<QString, QString, QString> row; // layer, kind of damage, commands
        for (const auto &[layer, commands] : kLayers) {
            for (const QString &kind : {u"flip"_s, u"cut"_s, u"type"_s, u"length"_s})
                row(qPrintable(layer + u": "_s + kind), layer, kind, commands);
        }
    }

    void survives()
    {
        const auto &[layer, kind, commands] = Row<QString, QString, QString>();
        QJsonArray config;
        for (int seed = 0; seed < phonesPerRow(); ++seed) {
            const QByteArray damage = R"("faults": {"damage": {"layer": "%1", "kind": "%2", "seed": %3,
                                         "every": %4, "hold": %5}}, "format": "%6")";
            config.append(
                phone(QString::fromUtf8(damage)
                          .arg(layer, kind)
                          .arg(seed)
                          .arg(1 + seed % 4)
                          .arg(seed % 8 == 0 ? u"true"_s : u"false"_s, seed % 2 == 0 ? u"xml"_s : u"binary"_s)
                          .toUtf8(),
                      phoneID(seed)));
        }
        const VirtualPhones phones(config);
        const QString ipa = phones.makeIPA(u"ru.primer.novoe"_s, u"3.5"_s);
        const QStringList words = commands.split(u' ');
        int affected = 0;
        std::deque<Run> runs;
        for (int seed = 0; seed < phonesPerRow(); ++seed) {
            const QString &command = words[seed % words.size()];
            QStringList arguments{u"--verbose"_s, command};
            if (command != "devices"_L1)
                arguments.append(phoneID(seed));
            if (command == "install"_L1)
                arguments.append(ipa);
            runs.push_back(
                {phones.start(arguments, Limits::Short), {}, layer == "mux"_L1 && command != "devices"_L1});
            runs.back().timer.start();
            if (runs.size() < kAtOnce)
                continue;
            check(runs.front(), affected);
            runs.pop_front();
        }
        for (Run &run : runs)
            check(run, affected);
        QVERIFY(affected > 0); // else the damage was none
    }

private:
    // The library falls over damaged pairing records, which come through the service of the cable; a list of
    // phones needs none.
    static void check(Run &run, int &affected)
    {
        const ToolRun result = finish(*run.process);
        affected += result.status == 1 || result.output.contains("недоступно") ? 1 : 0;
        const bool isBad = !result.isWellFormed() || run.timer.hasExpired(kLongest) ||
                           (result.diagnostics.contains("crashed") && !run.mayCrash);
        QVERIFY2(
            !isBad,
            (run.process->arguments().join(u' ').toUtf8() + result.output + result.diagnostics).constData());
    }
};

QTEST_GUILESS_MAIN(PhoneDamageTest)

#include "tst_phone_damage.moc"
