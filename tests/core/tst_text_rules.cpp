#include "core/error.h"
#include "core/ipa_file_naming.h"
#include "core/password_policy.h"
#include "core/self_test.h"

#include <QTest>

#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

class TextRulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void judgesPasswords_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("letters, digits, punctuation: accepted") << u"Kpm274!?"_s << true;
        QTest::newRow("nothing: accepted") << QString() << true;
        QTest::newRow("blank inside: accepted") << u"a b"_s << true;
        QTest::newRow("Cyrillic: refused") << u"Пароль"_s << false;
        QTest::newRow("one Cyrillic letter that looks Latin: refused") << u"pаss"_s << false;
        QTest::newRow("accent: refused") << u"caf\u00E9"_s << false;
        QTest::newRow("beyond the basic plane: refused") << u"ok🙂"_s << false;
    }

    void judgesPasswords()
    {
        QFETCH(const QString, password);
        QTEST(ZarvoLatin(password), "accepted");
    }

    void acceptsExactlyPrintableASCII()
    {
        for (char32_t unit = 0; unit <= 0xFFFF; ++unit) {
            const bool accepted = ZarvoLatin(QString(QChar(static_cast<char16_t>(unit))));
            QVERIFY2(accepted == (unit >= 0x20 && unit <= 0x7E), qPrintable(QString::number(unit, 16)));
        }
    }

    // What a folder on a server, a stick that was pulled out, or a busy system answers.
    void systemErrorsAreRussian()
    {
        for (const int number : {ENFILE, EBUSY, ESTALE, ENOTCONN, ENODEV, ENXIO, ETIMEDOUT, ELOOP, EMLINK,
                                 EXDEV, EHOSTDOWN, ENOTSUP, EIO, ENOSPC, EROFS, EDQUOT, ECANCELED}) {
            const QString text = SystemError(QString(), number).message;
            QVERIFY2(!text.contains(QLatin1StringView(std::strerror(number))), qPrintable(text));
        }
    }

    void selfTestNoticesBrokenRules_data()
    {
        QTest::addColumn<SelfTestRules>("rules");
        QTest::addColumn<bool>("passes");
        const auto latinNames = [](const QString &name, const QString &version) {
            return ZarvoFilename(QString(name).replace(u"Авито"_s, u"Avito"_s), version);
        };
        const auto noVersion = [](const QString &name, const QString &) { return QString(name + u".ipa"_s); };
        QTest::newRow("as built: passes") << SelfTestRules{ZarvoLatin, ZarvoFilename} << true;
        QTest::newRow("accepts Cyrillic: fails")
            << SelfTestRules{[](QStringView) { return true; }, ZarvoFilename} << false;
        QTest::newRow("accepts nothing: fails")
            << SelfTestRules{[](QStringView) { return false; }, ZarvoFilename} << false;
        QTest::newRow("transliterates: fails") << SelfTestRules{ZarvoLatin, latinNames} << false;
        QTest::newRow("drops the version: fails") << SelfTestRules{ZarvoLatin, noVersion} << false;
    }

    void selfTestNoticesBrokenRules()
    {
        QFETCH(const SelfTestRules, rules);
        QTEST(SelfTestPasses(rules), "passes");
    }
};

QTEST_APPLESS_MAIN(TextRulesTest)
#include "tst_text_rules.moc"
