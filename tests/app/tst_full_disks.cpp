// What was on the disk before is there after, whole, whatever the disk does: the history, the report, saved
// and chosen IPAs, and nothing beside them.
#include "app/window_fixture.h"
#include "device/history_writer.h"
#include "ipa/file_moving.h"
#include "ipa_writer.h"
#include "store/batch_download.h"
#include "support/rows.h"

#include <QFile>
#include <QMap>
#include <QSettings>
#include <QTimer>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace {

enum class Disk {
    Full, ///< to the last page, then to the last but one, and so on
    ReadOnly,
    FailsOnce, ///< at the first call that changes it, then at the second, and so on
    Foreign,   ///< its folders are somebody else's
};

constexpr int kPage = 4096;
constexpr int kEnough = 200; // pages for each work, and calls that it makes
constexpr int kAllGoWell = 1'000'000'000;
std::atomic<int> callsLeft = kAllGoWell;
std::atomic<bool> isForeign = false;

bool failsNow()
{
    const bool fails = callsLeft.fetch_sub(1) == 0;
    errno = fails ? ENOSPC : errno;
    return fails;
}

bool isOrdinary(int file)
{
    struct stat status = {};
    return file > STDERR_FILENO && ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

// Anybody may have a file system of his own in a user namespace, and root without.
bool enterOwnNamespace()
{
    if (::unshare(CLONE_NEWNS) == 0)
        return true;
    const auto user = "0 " + QByteArray::number(::getuid()) + " 1";
    const auto group = "0 " + QByteArray::number(::getgid()) + " 1";
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeFile(u"/proc/self/uid_map"_s, user) &&
           writeFile(u"/proc/self/setgroups"_s, "deny") && writeFile(u"/proc/self/gid_map"_s, group);
}

/// What is to be done; whether it says that it is done.
using Work = std::function<void(bool &isDone)>;

} // namespace

// These take the place of the C library's for this program.
extern "C" ssize_t write(int file, const void *bytes, size_t count)
{
    return isOrdinary(file) && failsNow() ? -1 : ::syscall(SYS_write, file, bytes, count);
}
extern "C" int fsync(int file)
{
    return failsNow() ? -1 : static_cast<int>(::syscall(SYS_fsync, file));
}
extern "C" int mkdir(const char *path, mode_t mode) noexcept
{
    return failsNow() ? -1 : static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}
extern "C" int renameat2(int from, const char *source, int to, const char *target, unsigned flags) noexcept
{
    return failsNow() ? -1 : static_cast<int>(::syscall(SYS_renameat2, from, source, to, target, flags));
}
extern "C" uid_t geteuid() noexcept
{
    return static_cast<uid_t>(::syscall(SYS_geteuid)) + (isForeign ? 1 : 0);
}
extern "C" int rename(const char *source, const char *target) noexcept
{
    return ::renameat2(AT_FDCWD, source, AT_FDCWD, target, 0);
}

class FullDisksTest : public ProgramTest
{
    Q_OBJECT

public:
    // A disk of this process's own, for settings, temporary files and what is saved; the tools lie elsewhere.
    // Where the system allows none, this fails: the promise would be unchecked.
    static void initMain()
    {
        Program::isolate();
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, u"/dev/null"_s); // as the program
        const bool isOwn = enterOwnNamespace();
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr); // / may be no mount point
        if (!isOwn || ::mount("none", root().constData(), "tmpfs", 0, "size=16m") != 0)
            qFatal("the system allows no file system of one's own: a full disk cannot be played");
    }

private:
    using Files = QMap<QString, QByteArray>;
    static QByteArray root() { return qgetenv("XDG_CONFIG_HOME"); }
    static QString onDisk(const QString &name) { return QFile::decodeName(root()) + u'/' + name; }

    static Files files()
    {
        Files all;
        for (const QString &path : FilesBelow(onDisk({}), u"*"_s))
            all[path] = QFileInfo(path).isDir() ? "folder" : '=' + ContentOf(path);
        all.remove(onDisk(u"filler"_s));
        return all;
    }

    static void restore(const Files &before)
    {
        const Files now = files();
        for (const QString &path : now.keys()) {
            if (!before.contains(path))
                QFileInfo(path).isDir() ? QDir(path).removeRecursively() : QFile::remove(path);
        }
        for (const auto &[path, content] : before.asKeyValueRange()) {
            if (now.value(path) != content)
                QVERIFY(writeFile(path, content.sliced(1)));
        }
    }

    /// Trouble of that kind: so many pages of the disk are left, or so many calls go well.
    static void begin(Disk disk, int left)
    {
        if (disk == Disk::ReadOnly)
            QCOMPARE(::mount(nullptr, root().constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        if (disk == Disk::Full) {
            QFile filler(onDisk(u"filler"_s));
            QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
            while (filler.write(QByteArray(kPage, 'x')) == kPage) {
            }
            QVERIFY(filler.resize((filler.size() / kPage - left) * kPage));
        }
        callsLeft = disk == Disk::FailsOnce ? left : kAllGoWell;
        isForeign = disk == Disk::Foreign;
    }

    /// True when there was nothing any more that could fail.
    static bool end()
    {
        QFile::remove(onDisk(u"filler"_s));
        ::mount(nullptr, root().constData(), nullptr, MS_REMOUNT, nullptr);
        isForeign = false;
        return callsLeft.exchange(kAllGoWell) >= 0;
    }

    /// What is neither as it was nor as it is after work that went well.
    static QString damage(const Files &before, const Files &good)
    {
        const Files now = files();
        for (const QString &path : (before.keys() + good.keys() + now.keys())) {
            if (now.value(path) != before.value(path) && now.value(path) != good.value(path))
                return path + u" holds "_s + QString::fromUtf8(now.value(path).first(10));
        }
        return {};
    }

    void finish(QStringView success, bool &isDone) const
    {
        QVERIFY(QTest::qWaitFor([this] { return !m->isBusy(); }, kPatience));
        isDone = m->status().startsWith(success);
        QVERIFY2(m->answerAlert(u"Понятно"_s) != isDone,
                 qPrintable(m->status())); // no failure without a word
    }

private Q_SLOTS:
    static void cleanupTestCase() { ::umount2(root().constData(), MNT_DETACH); }

    void keepWhatIsThere_data()
    {
        const Rows<Work, Disk> row;
        const auto add = [&](const QByteArray &name, const Work &work) {
            row((name + ", full disk").constData(), work, Disk::Full);
            row((name + ", read-only disk").constData(), work, Disk::ReadOnly);
            row((name + ", each call fails in turn").constData(), work, Disk::FailsOnce);
        };
        const Work store = [](bool &isDone) {
            const QByteArray before = ContentOf(Program::settingsFile());
            HistoryWriter writer;
            {
                Background background;
                writer.store({QVariantMap{{u"id"_s, QString(3000, u'P')}}}, background);
            }
            isDone = ContentOf(Program::settingsFile()) != before;
        };
        add("history", store);
        row("history, somebody else's folder", store, Disk::Foreign);
        add("report", [this](bool &isDone) {
            isDone = WriteBatchReport(m->destination.path(), QByteArray(30'000, '1'));
        });
        add("copy from another disk", [this](bool &isDone) {
            const fs::path source(m->tools.filePath(u"copy.ipa"_s).toStdString());
            fs::copy_file(m->mapsIPA.toStdString(), source, fs::copy_options::overwrite_existing);
            isDone = MoveWithoutReplacing(source, m->destination.filePath(u"new.ipa"_s).toStdString());
            QVERIFY(isDone || fs::exists(source));
        });
        add("download", [this](bool &isDone) {
            QVERIFY(m->download());
            finish(u"IPA сохранён", isDone);
        });
        add("installation", [this](bool &isDone) {
            m->press("installButton");
            QVERIFY(m->answerAlert(u"Установить"_s));
            finish(u"Установка подтверждена", isDone);
        });
    }

    void keepWhatIsThere()
    {
        const auto &[work, disk] = Row<Work, Disk>();
        m->destination = QTemporaryDir(onDisk(u"saved-XXXXXX"_s));
        QVERIFY(QDir().mkpath(onDisk(u"tmp"_s)) && QDir().mkpath(onDisk(u"Zarvo"_s)));
        qputenv("TMPDIR", QFile::encodeName(onDisk(u"tmp"_s)));
        m->playDevice([](Scenario &tool) {
            tool.when({u"install"}).prints(u"{\"success\":true}");
            tool.when({u"apps"}).prints(
                uR"({"apps":[{"id":"com.example.maps","name":"Карты","version":"1.5",)"
                uR"("storeID":123}]})");
        });
        QVERIFY(m->startWithPhone());
        m->choosePhone();
        EVENTUALLY(!m->isBusy() && m->chooseApp(u"Карты"_s));
        m->app().findChild<QTimer *>()->stop(); // no poll, which would meet the disk instead
        const QString chosen = m->destination.filePath(u"chosen.ipa"_s);
        QVERIFY(QFile::copy(m->mapsIPA, chosen) && m->chooseIPA(chosen));
        QVERIFY(writeIPA(QFile::encodeName(m->destination.filePath(u"Карты-1.5.ipa"_s)).toStdString(),
                         {.id = u"com.example.maps"_s, .version = u"1.5"_s, .padding = 100}));
        QVERIFY(writeFile(m->destination.filePath(u"report.json"_s), QByteArray(20'000, '0')));
        const QByteArray kept = "\n[other]\nkept=" + QByteArray(20'000, '0') + '\n';
        const QString settings = onDisk(u"settings"_s); // which the user keeps elsewhere
        QVERIFY(writeFile(settings, "[General]\nzarvo.deviceHistory.v1=old\n" + kept));
        EVENTUALLY(QFile::exists(Program::settingsFile())); // with the phone
        QVERIFY(QFile::remove(Program::settingsFile()));
        QVERIFY(QFile::link(settings, Program::settingsFile()));
        const Files before = files();
        bool isDone = false;
        work(isDone);
        QVERIFY(isDone);
        const Files good = files();
        QVERIFY(good.value(settings).endsWith(kept) && QFileInfo(Program::settingsFile()).isSymLink());
        bool isOver = false;
        for (int left = 0; !isOver; ++left) {
            restore(before);
            isDone = false;
            begin(disk, left);
            work(isDone);
            const bool isHopeless = disk == Disk::ReadOnly || disk == Disk::Foreign;
            isOver = (end() && isDone) || isHopeless;
            EVENTUALLY_EQUAL(damage(before, good), QString());
            QVERIFY(!isDone || (files() == good && !isHopeless));
            QVERIFY(left < kEnough);
        }
        work(isDone);
        QCOMPARE(files(), good);
    }
};

QTEST_MAIN(FullDisksTest)
#include "tst_full_disks.moc"
