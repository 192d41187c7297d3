#include "core/private_folder.h"
#include "ipa/file_moving.h"
#include "ipa/ipa_publishing.h"
#include "ipa_writer.h"

#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace {

const QString kLink = u"В выбранной папке уже есть ссылка с таким именем. Выберите другую папку."_s;
const QString kForeign = u"В выбранной папке уже есть другой файл с таким именем. Он сохранён без изменений. "
                         "Выберите другую папку."_s;
const QString kNotReplaced = u"Не удалось заменить ранее сохранённый IPA."_s;

const IPAInfo kInfo{u"com.example.app"_s, u"1.0"_s};

// Memory of its own: a volume that is not the one of the temporary files.
constexpr const char *kOtherVolume = "/dev/shm";

std::string contents(const fs::path &file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const fs::path &file, const std::string &bytes)
{
    std::ofstream(file, std::ios::binary) << bytes;
}

dev_t deviceOf(const fs::path &file)
{
    struct stat status = {};
    return ::stat(file.c_str(), &status) == 0 ? status.st_dev : 0;
}

size_t entriesIn(const fs::path &folder)
{
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

// What happens before the first, second… exchange or exclusive rename: an errno value makes the call fail.
using Interference = std::function<int(const fs::path &destination)>;
QList<Interference> interferences;

} // namespace

// Takes the place of the C library's for this program.
extern "C" int renameat2(int from, const char *source, int to, const char *destination,
                         unsigned flags) noexcept
{
    // The last one serves for all calls that follow.
    const Interference interfere =
        interferences.size() > 1 ? interferences.takeFirst() : interferences.value(0);
    if (const int number = interfere ? interfere(destination) : 0) {
        errno = number;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_renameat2, from, source, to, destination, flags));
}

class TestIPAPublishing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        const fs::path folder(m_folder->path().toStdString());
        fs::create_directories(folder / "private");
        fs::create_directories(folder / "chosen");
        m_source = folder / "private" / "new.ipa";
        m_destination = folder / "chosen" / "Банк 1.0.ipa";
        QVERIFY(writeIPA(m_source, {.padding = 3 << 20}));
        m_new = contents(m_source);
    }

    void freeName()
    {
        for (const std::string &name :
             {std::string("Банк.ipa"), std::string("\xE0\xFF"), std::string(255, 'x')}) {
            QVERIFY(writeIPA(m_source, {.padding = 5}));
            const std::string bytes = contents(m_source);
            const fs::path destination = m_destination.parent_path() / name;
            Error error{u"untouched"_s};
            QVERIFY2(ZarvoPublishIPA(m_source, destination, kInfo, &error), qPrintable(error.message));
            QCOMPARE(contents(destination), bytes);
            QVERIFY(!exists(m_source));
            QCOMPARE(error.message, u"untouched"_s);
            fs::remove(destination); // QTemporaryDir cannot name every file
        }
    }

    void noSuchFolder()
    {
        const QString longName(256, u'x');
        const std::pair<std::string, QString> cases[] = {
            {"none/a.ipa", u"«a.ipa»: Нет такого файла или каталога."_s},
            {"private/new.ipa/b.ipa", u"«b.ipa»: Это не каталог."_s},
            {longName.toStdString(), u"«%1»: Слишком длинное имя файла."_s.arg(longName)},
        };
        for (const auto &[name, reason] : cases) {
            const fs::path destination = fs::path(m_folder->path().toStdString()) / name;
            Error error;
            QVERIFY(!ZarvoPublishIPA(m_source, destination, kInfo, &error));
            QCOMPARE(error.message, u"Не удалось сохранить "_s + reason);
            QCOMPARE(contents(m_source), m_new);
            QVERIFY(!ZarvoPublishIPA(m_source, destination, kInfo));
        }
    }

    void sameBytes()
    {
        fs::copy_file(m_source, m_destination);
        const auto before = StateOf(m_destination);
        // Also when the info is not the file's: equal bytes need no other proof.
        QVERIFY(ZarvoPublishIPA(m_source, m_destination, {u"other"_s, u"2"_s}));
        QCOMPARE(StateOf(m_destination) == before, true);
        QCOMPARE(contents(m_source), m_new);

        fs::remove(m_destination);
        fs::create_hard_link(m_source, m_destination);
        QVERIFY(publish());
        QCOMPARE(contents(m_source), m_new);
        QCOMPARE(contents(m_destination), m_new);
    }

    void earlierCopy()
    {
        QVERIFY(writeIPA(m_destination, {.padding = 100}));
        const std::ifstream reader(m_destination); // who reads the old file keeps it
        QVERIFY(publish());
        QCOMPARE(contents(m_destination), m_new);
        QVERIFY(!exists(m_source));
        QCOMPARE(entriesIn(m_destination.parent_path()), size_t{1});
    }

    void foreign_data()
    {
        using Make = std::function<void(const fs::path &)>;
        QTest::addColumn<Make>("make");
        QTest::addColumn<QString>("message");
        const auto row = [](const char *name, const Make &make, const QString &message = kForeign) {
            QTest::newRow(name) << make << message;
        };
        row("no archive", [](const fs::path &p) { write(p, "my notes"); });
        row("empty file", [](const fs::path &p) { write(p, ""); });
        row("IPA of another app", [](const fs::path &p) { writeIPA(p, {.id = u"com.example.App"_s}); });
        row("IPA of another version", [](const fs::path &p) { writeIPA(p, {.version = u"1.0.0"_s}); });
        row("damaged earlier copy", [](const fs::path &p) {
            writeIPA(p, {});
            fs::resize_file(p, fs::file_size(p) - 10);
        });
        row("folder", [](const fs::path &p) { fs::create_directory(p); });
        row("pipe", [](const fs::path &p) { ::mkfifo(p.c_str(), 0600); });
        row(
            "dangling link", [](const fs::path &p) { fs::create_symlink("nowhere", p); }, kLink);
        row(
            "link to an earlier copy",
            [](const fs::path &p) {
                writeIPA(p.parent_path() / "copy", {});
                fs::create_symlink("copy", p);
            },
            kLink);
        row(
            "link to a folder", [](const fs::path &p) { fs::create_directory_symlink("/", p); }, kLink);
    }

    void foreign()
    {
        QFETCH(std::function<void(const fs::path &)>, make);
        QFETCH(QString, message);
        make(m_destination);
        const auto before = StateOf(m_destination);
        QVERIFY(before);
        Error error;
        QVERIFY(!publish(&error));
        QCOMPARE(error.message, message);
        QVERIFY(!publish());
        QVERIFY(StateOf(m_destination) == before);
        QCOMPARE(contents(m_source), m_new);
    }

    void missingSource()
    {
        fs::remove(m_source);
        Error error;
        QVERIFY(!publish(&error));
        QCOMPARE(error.message, u"Не удалось сохранить «Банк 1.0.ipa»: Нет такого файла или каталога."_s);
        QVERIFY(writeIPA(m_destination, {}));
        QVERIFY(!publish(&error));
        QCOMPARE(error.message, kNotReplaced);
        QVERIFY(exists(m_destination));
    }

    void otherVolume()
    {
        QTemporaryDir other(QLatin1StringView(kOtherVolume) + u"/zarvo-test-XXXXXX"_s);
        if (!other.isValid() || deviceOf(kOtherVolume) == deviceOf(m_source))
            QSKIP(
                "Not seen: moving across volumes. /dev/shm and the folder for temporary files are one volume "
                "here.");
        const fs::path folder(other.path().toStdString());
        // A copy that breaks off in the middle leaves nothing under any name.
        rlimit unlimited{};
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
        rlimit small = unlimited;
        small.rlim_cur = 1'500'000;
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        Error error;
        const bool published = ZarvoPublishIPA(m_source, folder / "a.ipa", kInfo, &error);
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
        std::signal(SIGXFSZ, oldHandler);
        QVERIFY(!published);
        QCOMPARE(error.message, u"Не удалось сохранить «a.ipa»: Файл слишком велик."_s);
        QCOMPARE(entriesIn(folder), size_t{0});
        QCOMPARE(contents(m_source), m_new);
        fs::permissions(m_source, fs::perms(0644));
        const auto before = StateOf(m_source);
        QVERIFY2(ZarvoPublishIPA(m_source, folder / "a.ipa", kInfo, &error), qPrintable(error.message));
        QCOMPARE(contents(folder / "a.ipa"), m_new);
        QVERIFY(fs::status(folder / "a.ipa").permissions() == fs::perms(0644));
        QCOMPARE(StateOf(folder / "a.ipa")->modifiedNanoseconds, before->modifiedNanoseconds);
        QVERIFY(!exists(m_source));
        QCOMPARE(entriesIn(folder), size_t{1});

        QVERIFY(writeIPA(m_source, {.padding = 7}));
        QVERIFY(!ZarvoPublishIPA(m_source, folder / "a.ipa", kInfo, &error));
        QCOMPARE(error.message, kNotReplaced);
        QCOMPARE(contents(folder / "a.ipa"), m_new);
        QVERIFY(exists(m_source));
        QCOMPARE(entriesIn(folder), size_t{1});
    }

    void everyWayOfMoving_data()
    {
        QTest::addColumn<MoveWay>("way");
        QTest::newRow("exclusive rename") << MoveWay::RenameExclusively;
        QTest::newRow("link, then unlink") << MoveWay::LinkThenUnlink;
        QTest::newRow("claim, then rename") << MoveWay::ClaimThenRename;
    }

    void everyWayOfMoving()
    {
        QFETCH(MoveWay, way);
        write(m_destination, "foreign");
        QVERIFY(!MoveWithoutReplacing(m_source, m_destination, nullptr, way));
        QCOMPARE(contents(m_destination), std::string("foreign"));
        QCOMPARE(contents(m_source), m_new);
        fs::remove(m_destination);

        QVERIFY(MoveWithoutReplacing(m_source, m_destination, nullptr, way));
        QCOMPARE(contents(m_destination), m_new);
        QVERIFY(!exists(m_source));

        // Nothing to move: the name stays free.
        QVERIFY(!MoveWithoutReplacing(m_source, m_destination.string() + "2", nullptr, way));
        QCOMPARE(entriesIn(m_destination.parent_path()), size_t{1});
    }

    void everyWayOfReplacing_data()
    {
        QTest::addColumn<ReplaceWay>("way");
        QTest::newRow("exchange") << ReplaceWay::Exchange;
        QTest::newRow("check, then rename") << ReplaceWay::CheckThenRename;
    }

    void everyWayOfReplacing()
    {
        QFETCH(ReplaceWay, way);
        write(m_destination, "old");
        const auto checked = StateOf(m_destination);
        QVERIFY(checked);
        write(m_destination, "changed since");
        QCOMPARE(ReplaceFile(m_source, m_destination, *checked, way), Replacement::Refused);
        QCOMPARE(contents(m_destination), std::string("changed since"));
        QCOMPARE(contents(m_source), m_new);

        QCOMPARE(ReplaceFile(m_source, m_destination, *StateOf(m_destination), way), Replacement::Done);
        QCOMPARE(contents(m_destination), m_new);
        QVERIFY(!exists(m_source));

        fs::rename(m_destination, m_source);
        QCOMPARE(ReplaceFile(m_source, m_destination, *checked, way), Replacement::Done); // removed meanwhile
        QCOMPARE(contents(m_destination), m_new);
        if (way != ReplaceWay::Exchange)
            return;
        write(m_source, "newer");
        interferences = {[](const fs::path &name) { return fs::remove(name) ? 0 : EIO; }, {}};
        QCOMPARE(ReplaceFile(m_source, m_destination, *StateOf(m_destination)), Replacement::Done);
        interferences.clear();
        QCOMPARE(contents(m_destination), std::string("newer"));
    }

    void foreignComesBetween_data()
    {
        QTest::addColumn<QList<Interference>>("then"); // after the foreign file has come
        QTest::addColumn<Replacement>("outcome");
        QTest::addColumn<std::string>("there");  // under the name
        QTest::addColumn<std::string>("beside"); // under the next one
        const Interference nothing = [](const fs::path &) { return 0; };
        const Interference fails = [](const fs::path &) { return EIO; };
        const Interference removed = [](const fs::path &there) { return fs::remove(there) ? 0 : EIO; };
        const Interference replaced = [](const fs::path &there) {
            fs::remove(there);
            write(there, "third");
            return 0;
        };
        using List = QList<Interference>;
        QTest::newRow("put back") << List{nothing} << Replacement::Refused << std::string("foreign")
                                  << std::string();
        QTest::newRow("ours is removed: put back")
            << List{removed, nothing} << Replacement::Refused << std::string("foreign") << std::string();
        QTest::newRow("ours is replaced: kept beside the third")
            << List{replaced, nothing} << Replacement::Failed << std::string("third")
            << std::string("foreign");
        QTest::newRow("cannot be put back: kept beside") << List{fails, fails, nothing} << Replacement::Failed
                                                         << std::string("new") << std::string("foreign");
        QTest::newRow("cannot be moved at all: its folder stays")
            << List{fails} << Replacement::Failed << std::string("new") << std::string();
    }

    // A foreign file gets the name after the old one was checked, just before the names are swapped. It is in
    // a private folder for a moment, and is gone with it unless it comes out again.
    void foreignComesBetween()
    {
        QFETCH(QList<Interference>, then);
        QFETCH(std::string, there);
        QFETCH(std::string, beside);
        write(m_destination, "old");
        const auto checked = StateOf(m_destination);
        interferences = QList<Interference>{[](const fs::path &name) {
                            fs::remove(name);
                            write(name, "foreign");
                            return 0;
                        }} +
                        then;
        fs::path source;
        {
            const auto folder = PrivateFolder::create(m_folder->path(), u".zarvo-"_s);
            QVERIFY(folder);
            source = fs::path(folder->filePath(u"new.ipa"_s).toStdString());
            write(source, "new");
            QTEST(ReplaceFile(source, m_destination, *checked), "outcome");
            interferences.clear();
        }
        QCOMPARE(contents(m_destination), there);
        QCOMPARE(contents(m_destination.parent_path() / "Банк 1.0 (2).ipa"), beside);
        const bool isLeft = there != "foreign" && beside != "foreign";
        QCOMPARE(contents(source), std::string(isLeft ? "foreign" : ""));
        QCOMPARE(exists(source.parent_path()), isLeft);
    }

private:
    bool publish(Error *error = nullptr) const
    {
        return ZarvoPublishIPA(m_source, m_destination, kInfo, error);
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    fs::path m_source;
    fs::path m_destination;
    std::string m_new; // the bytes of the source
};

QTEST_GUILESS_MAIN(TestIPAPublishing)
#include "tst_ipa_publishing.moc"
