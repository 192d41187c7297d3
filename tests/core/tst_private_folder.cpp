#include "core/private_folder.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Held by the test: while it is, the server behind folders of this name does not answer.
std::mutex deadServer;
std::promise<void> asked;
constexpr auto kDeadName = "dead-";

} // namespace

// Takes the place of the C library's for this program.
extern "C" int mkdir(const char *path, mode_t mode) noexcept
{
    if (std::strstr(path, kDeadName)) {
        asked.set_value();
        const std::lock_guard waiting(deadServer);
    }
    return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

class PrivateFolderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leavesInSpiteOfADeadServer()
    {
        const QTemporaryDir parent;
        std::unique_lock dead(deadServer);
        Error error;
        bool made = true;
        std::thread worker([&] {
            made = PrivateFolder::create(parent.path(), QString::fromLatin1(kDeadName), &error).has_value();
        });
        asked.get_future().wait();

        const auto other = PrivateFolder::create(parent.path(), u"other-"_s);
        QVERIFY(other); // the work of others goes on
        QVERIFY(!PrivateFolder::removeAll(100ms));
        QTRY_VERIFY(!QFileInfo::exists(other->path()));
        QVERIFY(!PrivateFolder::create(parent.path(), u"late-"_s));

        dead.unlock(); // it answers after all: nothing is left behind
        worker.join();
        QVERIFY(!made);
        QVERIFY2(error.message.endsWith(u": Операция отменена."), qPrintable(error.message));
        QVERIFY(PrivateFolder::removeAll(20s));
        QCOMPARE(QDir(parent.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }
};

QTEST_APPLESS_MAIN(PrivateFolderTest)
#include "tst_private_folder.moc"
