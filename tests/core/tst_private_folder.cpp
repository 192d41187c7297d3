#include "core/private_folder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Held by the test: while it is, the server behind folders of this name does not answer.
std::mutex deadServer;
std::promise<void> asked;
constexpr auto kDeadName = "dead-";

const QString kLeave = u"leave"_s;

/// A worker lets go of its folder while the program leaves: who has nothing more to remove must not say so
/// for the other, who is still at it. Done in a process of its own, which ends as soon as all is said to be
/// gone.
bool isGoneAfterLeaving(const QString &parent)
{
    auto folder = PrivateFolder::create(parent, u"shared-"_s);
    for (int i = 0; folder && i < 300; ++i)
        ::close(::creat(QFile::encodeName(folder->filePath(QString::number(i))).constData(), 0600));
    std::thread([&folder] { folder.reset(); }).detach();
    return PrivateFolder::removeAll(20s) && QDir(parent).isEmpty();
}

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

// An errno value with which the next removal fails, which the C++ library asks for.
static int shortage = 0;

extern "C" int unlinkat(int folder, const char *name, int flags) noexcept
{
    if ((errno = std::exchange(shortage, 0)) != 0)
        return -1;
    return static_cast<int>(::syscall(SYS_unlinkat, folder, name, flags));
}

class PrivateFolderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isGoneWhenItSaysSo()
    {
        for (int round = 0; round < 20; ++round) {
            const QTemporaryDir parent;
            QCOMPARE(QProcess::execute(u"/proc/self/exe"_s, {kLeave, parent.path()}), 0);
        }
    }

    void isGoneInSpiteOfAShortage()
    {
        for (const int number : {EMFILE, ENOMEM, EINTR}) {
            const QTemporaryDir parent;
            auto folder = PrivateFolder::create(parent.path(), u"short-"_s);
            QVERIFY(folder && QDir(folder->path()).mkdir(u"inside"_s));
            shortage = number;
            folder.reset();
            QCOMPARE(shortage, 0);
            QVERIFY(QDir(parent.path()).isEmpty());
        }
    }

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

int main(int argc, char **argv)
{
    if (argc == 3 && QString::fromLocal8Bit(argv[1]) == kLeave)
        std::_Exit(isGoneAfterLeaving(QString::fromLocal8Bit(argv[2])) ? 0 : 1);
    PrivateFolderTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_private_folder.moc"
