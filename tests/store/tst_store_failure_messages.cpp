#include "store/store_failure_messages.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestStoreFailureMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theReasonChoosesTheAdvice_data()
    {
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("adviceStart");

        QTest::newRow("licence, in any case") << u"License IS Required"_s << u"Apple требует лицензию"_s;
        QTest::newRow("missing app goes before the time limit")
            << u"app not found: request timed out"_s << u"Apple не предоставила приложение."_s;
        QTest::newRow("crash") << u"panic: runtime error"_s << u"Модуль загрузки аварийно"_s;
        QTest::newRow("locked storage") << u"open: Operation not permitted"_s << u"Локальное хранилище"_s;
        QTest::newRow("sign-in") << u"failed to get account: item missing in keychain"_s
                                 << u"Нужен вход в Apple Account"_s;
        QTest::newRow("the last fragment of the longest row") << u"wrong password"_s << u"Нужен вход"_s;
        QTest::newRow("time limit goes before the certificate")
            << u"request timed out, certificate expired"_s << u"Не удалось дождаться ответа"_s;
        QTest::newRow("certificate") << u"x509: unknown authority"_s << u"Не удалось установить защищённое"_s;
        QTest::newRow("too many requests, also within a number") << u"size 14290"_s << u"Сервис ограничил"_s;
        QTest::newRow("anything else") << u"panic without its colon"_s << u"Загрузку выполнить не удалось."_s;
        QTest::newRow("what is redacted cannot match")
            << u"GET https://example.org/timeout/429"_s << u"Загрузку выполнить не удалось."_s;
    }

    void theReasonChoosesTheAdvice()
    {
        QFETCH(QString, reason);
        QFETCH(QString, adviceStart);
        const QString message = ZarvoStoreFailure({.code = 1, .out = {}, .err = reason, .data = {}});
        QVERIFY2(message.startsWith(adviceStart), qPrintable(message));
    }

    void theMessageHoldsCodeAndRedactedReason()
    {
        QCOMPARE(ZarvoStoreFailure({.code = 1, .out = {}, .err = {}, .data = {}}),
                 u"Загрузку выполнить не удалось.\n\nКод модуля: 1. Модуль не передал описание ошибки."_s);
        QCOMPARE(ZarvoStoreFailure({.code = -9, .out = u"%1 %2 token=abc HTTP 429"_s, .err = {}, .data = {}}),
                 u"Сервис ограничил частоту запросов. Повторите позже.\n\n"
                 u"Код модуля: -9. Причина: %1 %2 [секрет скрыт] HTTP 429"_s);
    }
};

QTEST_GUILESS_MAIN(TestStoreFailureMessages)
#include "tst_store_failure_messages.moc"
