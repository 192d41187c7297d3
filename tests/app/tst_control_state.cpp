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
    QTest::addColumn<QString>("enabled");
    QTest::newRow("nothing") << u"ot"_s;
    QTest::newRow("phone") << u"otn"_s;
    QTest::newRow("IPA") << u"ot"_s;
    QTest::newRow("IPA, phone") << u"otin"_s;
    QTest::newRow("list") << u"ota"_s;
    QTest::newRow("list, phone") << u"otan"_s;
    QTest::newRow("list, IPA") << u"ota"_s;
    QTest::newRow("list, IPA, phone") << u"otain"_s;
    QTest::newRow("app") << u"otd"_s;
    QTest::newRow("app, phone") << u"otdn"_s;
    QTest::newRow("app, IPA") << u"otd"_s;
    QTest::newRow("app, IPA, phone") << u"otdin"_s;
    QTest::newRow("app, list") << u"otda"_s;
    QTest::newRow("app, list, phone") << u"otdan"_s;
    QTest::newRow("app, list, IPA") << u"otda"_s;
    QTest::newRow("app, list, IPA, phone") << u"otdain"_s;
}

void ControlStateTest::enables()
{
    const QByteArray has(QTest::currentDataTag());
    WindowState state{false, has.contains("app"), has.contains("list"), has.contains("IPA"),
                      has.contains("phone")};
    QTEST(enabledIn(state), "enabled");
    state.busy = true;
    QCOMPARE(enabledIn(state), u"cs"_s);
}

QTEST_GUILESS_MAIN(ControlStateTest)
#include "tst_control_state.moc"
