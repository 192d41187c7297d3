#include "device/installed_apps.h"

#include <QTest>

using namespace Qt::StringLiterals;

/// A program of its own: the user's language is read once.
class TurkishSearchTest : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("LC_ALL", "tr_TR.UTF-8"); }

private Q_SLOTS:
    void tellsTheDotlessLetter()
    {
        const QList<AppRow> apps{{{}, u"ILIK"_s, {}, {}, {}, {}}, {{}, u"İzmir"_s, {}, {}, {}, {}}};
        const auto found = [&](const QString &text) { return MatchingApps(MakeSearchable(apps), text); };
        QCOMPARE(found(u"ılı"_s), std::vector<qsizetype>{0});
        QCOMPARE(found(u"i"_s), std::vector<qsizetype>{1});
    }
};

QTEST_GUILESS_MAIN(TurkishSearchTest)
#include "tst_turkish_search.moc"
