#include "core/main_thread.h"

#include <QEventLoop>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <chrono>
#include <thread>
#include <vector>

constexpr std::chrono::seconds kLimit{20}; // of a failing test

class MainThreadTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A dialog that waits for its answer in an event loop of its own must not hold up, or reorder, what
    // workers report.
    void goesOnInsideANestedEventLoop()
    {
        std::vector<int> order;
        ZarvoMain([&] { order.push_back(0); });
        QCOMPARE(order.size(), 1U); // on the main thread: at once
        QEventLoop dialog;
        std::thread worker([&] {
            ZarvoMain([&] {
                order.push_back(1);
                dialog.exec();
                order.push_back(4);
            });
            ZarvoMain([&] { order.push_back(2); });
            ZarvoMain([&] {
                order.push_back(QThread::currentThread() == thread() ? 3 : -1);
                dialog.quit();
            });
        });
        worker.join(); // returned, although nothing has run the blocks yet
        QCOMPARE(order.size(), 1U);
        QTimer limit;
        limit.callOnTimeout(&dialog, &QEventLoop::quit);
        limit.start(kLimit);
        QTRY_COMPARE(order, std::vector({0, 1, 2, 3, 4}));
    }
};

QTEST_GUILESS_MAIN(MainThreadTest)
#include "tst_main_thread.moc"
