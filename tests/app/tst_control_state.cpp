#include "app/control_state.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// The controls that are enabled, one letter each: (o)rdinary, (t)able, (d)ownload, download (a)ll,
/// (i)nstall, phone i(n)formation, (c)ancel, (s)pinner.
QString enabledIn(const WindowState &state)
{
    const std::pair<Control, QChar> letters[] = {
        {Control::Ordinary, u'o'},    {Control::Table, u't'},   {Control::Download, u'd'},
        {Control::DownloadAll, u'a'}, {Control::Install, u'i'}, {Control::Information, u'n'},
        {Control::Cancel, u'c'},      {Control::Spinner, u's'},
    };
    QString enabled;
    for (const auto &[control, letter] : letters) {
        if (IsEnabled(control, state))
            enabled.append(letter);
    }
    return enabled;
}

} // namespace

class ControlStateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void enables_data();
    void enables();
};

void ControlStateTest::enables_data()
{
    QTest::addColumn<bool>("hasTarget");
    QTest::addColumn<bool>("hasApps");
    QTest::addColumn<bool>("hasIPA");
    QTest::addColumn<bool>("hasPhone");
    QTest::addColumn<QString>("enabled");
    const auto row = [](const char *name, bool target, bool apps, bool ipa, bool phone,
                        const QString &enabled) {
        QTest::newRow(name) << target << apps << ipa << phone << enabled;
    };
    row("nothing", false, false, false, false, u"ot"_s);
    row("phone", false, false, false, true, u"otn"_s);
    row("IPA", false, false, true, false, u"ot"_s);
    row("IPA, phone", false, false, true, true, u"otin"_s);
    row("apps", false, true, false, false, u"ota"_s);
    row("apps, phone", false, true, false, true, u"otan"_s);
    row("apps, IPA", false, true, true, false, u"ota"_s);
    row("apps, IPA, phone", false, true, true, true, u"otain"_s);
    row("target", true, false, false, false, u"otd"_s);
    row("target, phone", true, false, false, true, u"otdn"_s);
    row("target, IPA", true, false, true, false, u"otd"_s);
    row("target, IPA, phone", true, false, true, true, u"otdin"_s);
    row("target, apps", true, true, false, false, u"otda"_s);
    row("target, apps, phone", true, true, false, true, u"otdan"_s);
    row("target, apps, IPA", true, true, true, false, u"otda"_s);
    row("everything", true, true, true, true, u"otdain"_s);
}

void ControlStateTest::enables()
{
    QFETCH(const bool, hasTarget);
    QFETCH(const bool, hasApps);
    QFETCH(const bool, hasIPA);
    QFETCH(const bool, hasPhone);
    QTEST(enabledIn({false, hasTarget, hasApps, hasIPA, hasPhone}), "enabled");
    QCOMPARE(enabledIn({true, hasTarget, hasApps, hasIPA, hasPhone}), u"cs"_s);
}

QTEST_GUILESS_MAIN(ControlStateTest)
#include "tst_control_state.moc"
