#include "ipa/ipa_fixture.h"
#include "ipa/ipa_validation.h"
#include "support/rows.h"

#include <QElapsedTimer>

#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <csignal>
#include <functional>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const QString kSound = u"com.example.app 1.0"_s;
const QString kDamaged = u"IPA повреждён или не является ZIP-архивом."_s;
const QString kNoSingleApp = u"В IPA нет единственного корректного пакета приложения."_s;
const QString kBadInfo = u"В IPA нет корректного Info.plist."_s;
const QString kBadIdentity = u"В IPA нет корректного идентификатора или исполняемого файла."_s;
const QString kNoExecutable = u"В IPA нет исполняемого файла."_s;

using Entries = QList<ZipEntry>;
using Change = std::function<void(Entries &)>;
using FileChange = std::function<void(const fs::path &)>;

// A pattern for unzip that others match, but not the file itself.
constexpr const char *kName = "-d*[a]?\\\nБанк.ipa";

// The entries of a sound IPA, by their place.
constexpr qsizetype kInfo = 2;
constexpr qsizetype kExecutable = 3;

Change info(const QByteArray &data)
{
    return [data](Entries &e) { e[kInfo].data = data; };
}

Change members(const QByteArray &id, const QByteArray &executable, const QByteArray &version = {})
{
    const auto member = [](const QByteArray &key, const QByteArray &value) {
        return value.isEmpty() ? value : "<key>CFBundle" + key + "</key>" + value;
    };
    return info("<plist version=\"1.0\"><dict>" + member("Identifier", id) +
                member("Executable", executable) + member("ShortVersionString", version) + "</dict></plist>");
}

// Each entry of the app once more, in the folder `to`.
Change copyTo(const QByteArray &to)
{
    return [to](Entries &e) {
        for (const qsizetype i : {kInfo, kExecutable}) {
            e.append(e[i]);
            e.last().name.replace("Payload/App.app", to);
        }
    };
}

Change renameTo(const QByteArray &to)
{
    return [to](Entries &e) {
        for (ZipEntry &entry : e)
            entry.name.replace("Payload/App.app", to);
    };
}

// So many entries like this one within the app, each with a number behind its name.
Change adds(const ZipEntry &entry, int count = 1)
{
    return [=](Entries &e) {
        for (int i = 0; i < count; ++i) {
            e.append(entry);
            e.last().name = "Payload/App.app/" + entry.name + QByteArray::number(i);
        }
    };
}

FileChange bytes(const std::function<void(QByteArray &)> &change)
{
    return [change](const fs::path &path) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QByteArray bytes = file.readAll();
        change(bytes);
        QVERIFY(file.resize(0) && file.seek(0) && file.write(bytes) == bytes.size());
    };
}

FileChange linkTo(const char *target)
{
    return [target](const fs::path &path) {
        fs::remove(path);
        fs::create_symlink(target, path);
    };
}

// What becomes of unzip when it is run with this option: the signal or, negative, the status that ends it.
std::string struckOption;
int strike = 0;

} // namespace

// Takes the place of the C library's for this program, in the child.
extern "C" int execve(const char *path, char *const *arguments, char *const *environment) noexcept
{
    if (arguments[1] == struckOption)
        strike > 0 ? (void)::kill(::getpid(), strike) : ::_exit(-strike);
    return static_cast<int>(::syscall(SYS_execve, path, arguments, environment));
}

class TestIPAValidation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_folder = std::make_unique<Folder>(); }

    void judges_data()
    {
        const Rows<QString, Change> row; // identifier and version, or what is wrong
        row("binary Info.plist", kSound, info(infoPropertyList({.binaryInfo = true})));
        row("app folder with blanks, a dash and a dot", kSound, renameTo("Payload/-x My. App.app"));
        row("plug-ins have an Info.plist, too", kSound, copyTo("Payload/App.app/PlugIns/P.app"));
        row("other app outside of Payload", kSound, copyTo("Old/Payload/App.app"));
        row("Info.plist with a suffix", kSound, copyTo("Payload/App.app/Info.plist.app"));
        row("a name that is not UTF-8 elsewhere", kSound, adds({.name = "x\xE0\xFF\xEF", .flags = 0}));
        row("a name of two lines", kSound, adds({.name = "line\nbreak"}));
        row("50,000 entries", kSound, adds({.name = "Assets/a rather long name "}, 50'000));
        row("executable with a Cyrillic name", kSound, [](Entries &e) {
            e[kInfo].data = infoPropertyList({.executable = u"Приложение"_s});
            e[kExecutable].name = "Payload/App.app/Приложение";
        });
        const QByteArray id = "<string>a</string>";
        const QByteArray app = "<string>App</string>";
        row("version empty", u"a "_s, members(id, app, "<string/>"));
        row("version a number", u"a не указана"_s, members(id, app, "<real>1.5</real>"));

        row("wrong checksum of any entry", kDamaged, [](Entries &e) { e[kExecutable].damaged = true; });
        row("encrypted", kDamaged, [](Entries &e) {
            e[kExecutable].flags |= 1;
            e[kExecutable].data.resize(100);
        });
        row("no entries", kDamaged, [](Entries &e) { e.clear(); });
        row("40 MB of complaints", kDamaged,
            adds({.name = QByteArray(3'500, 'x'), .data = "x", .damaged = true}, 12'000));

        row("18 MB of names",
            u"В IPA слишком много файлов: их список длиннее 16 МБ. Такой архив не принимается."_s,
            adds({.name = QByteArray(3'500, 'x')}, 5'000));

        row("no app", kNoSingleApp, [](Entries &e) { e.remove(kInfo); });
        row("two apps", kNoSingleApp, copyTo("Payload/Second.app"));
        row("Info.plist twice", kNoSingleApp, [](Entries &e) { e.append(e[kInfo]); });
        for (const char *const name : {"Payload/.app", "payload/App.app", "Payload/A[p]p.app",
                                       "Payload/*.app", "Payload/A\\p.app", "Payload/A..app"})
            row(name, kNoSingleApp, renameTo(name));
        row("name that is not UTF-8", kNoSingleApp, [](Entries &e) {
            renameTo("Payload/\xE0\xFF.app")(e);
            for (ZipEntry &entry : e)
                entry.flags = 0;
        });

        row("Info.plist is no property list", kBadInfo, info("hello"));
        row("Info.plist unpacks to 64 MB", kBadInfo,
            info(infoPropertyList({}).replace("</plist>", QByteArray(64 << 20, ' ') + "</plist>")));

        row("identifier a number", kBadIdentity, members("<integer>1</integer>", app));
        row("executable a path", kBadIdentity, members(id, "<string>bin/App</string>"));

        row("executable absent", kNoExecutable, [](Entries &e) { e.remove(kExecutable); });
        row("executable in letters of other case", kNoExecutable, members(id, "<string>app</string>"));
    }

    void judges()
    {
        const auto &[expected, change] = Row<QString, Change>();
        Entries entries = entriesOfIPA({});
        change(entries);
        QVERIFY(writeZip(archive(), entries));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(verdict(), expected);
        QCOMPARE_LT(timer.elapsed(), 20'000);
    }

    void expectedIdentifier()
    {
        QVERIFY(writeIPA(archive(), {.id = u"com.example.App"_s}));
        QVERIFY(ZarvoValidateIPA(archive(), u"com.example.App"_s));
        fs::create_symlink(kName, inFolder("\xE0\xFF"));
        QVERIFY(ZarvoValidateIPA(inFolder("\xE0\xFF"), u"com.example.App"_s));
        for (const QString &other : {u"com.example.app"_s, u"com.example.Ap"_s, u""_s})
            QCOMPARE(verdict(other), u"Получен IPA другого приложения. Файл не принят."_s);
    }

    void refusesFiles_data()
    {
        const Rows<FileChange> row;
        row("missing", [](const fs::path &p) { fs::remove(p); });
        row("folder", [](const fs::path &p) { fs::remove(p) && fs::create_directory(p); });
        row("pipe", [](const fs::path &p) { fs::remove(p) && ::mkfifo(p.c_str(), 0600) == 0; });
        row("link to itself", linkTo(kName));
        row("endless device", linkTo("/dev/zero"));
        row("terminal", linkTo("/dev/tty"));
        row("empty", bytes([](QByteArray &b) { b.clear(); }));
        row("directory cut off", bytes([](QByteArray &b) { b.chop(30); }));
        row("only half", bytes([](QByteArray &b) { b.truncate(b.size() / 2); }));
        row("something before the archive", bytes([](QByteArray &b) { b.prepend("#!/bin/sh\n"); }));
        row("a byte of the content", bytes([](QByteArray &b) { b[b.indexOf("\xCF\xFA\xED\xFE")] = 'x'; }));
    }

    void refusesFiles()
    {
        const auto &[change] = Row<FileChange>();
        Entries entries = entriesOfIPA({});
        entries[kExecutable].deflated = false;
        // A sound neighbour that unzip would look at instead.
        QVERIFY(writeZip(archive(), entries) && writeZip(inFolder(kName + std::string(".zip")), entries));
        QCOMPARE(verdict(), kSound);
        change(archive());
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(verdict(), kDamaged);
        QCOMPARE_LT(timer.elapsed(), 5'000);
    }

    void environmentHasNoSay()
    {
        Entries entries = entriesOfIPA({});
        renameTo("Payload/Банк.app")(entries);
        QVERIFY(writeZip(archive(), entries));
        entries[kExecutable].damaged = true;
        QVERIFY(writeZip(inFolder("damaged"), entries));
        for (const QByteArray setting :
             {"UNZIP=-x *", "ZIPINFO=-h", "ZIPINFOOPT=-x *", "LC_ALL=C", "LC_ALL=ru_RU.KOI8-R"}) {
            const auto set = Variable(setting.split('=')[0], setting.split('=')[1]);
            std::setlocale(LC_ALL, "");
            const bool sound = ZarvoValidateIPA(archive()).has_value();
            const bool damaged = ZarvoValidateIPA(inFolder("damaged")).has_value();
            std::setlocale(LC_ALL, "C.UTF-8");
            QVERIFY2(sound && !damaged, setting.constData());
        }
    }

    // Another app gets the name again and again: an answer is about one of them, never about a bit of each.
    void fileSwappedMeanwhile()
    {
        QVERIFY(writeIPA(inFolder("1"), {.id = u"one"_s, .name = u"One"_s, .version = u"1"_s}));
        QVERIFY(writeIPA(inFolder("2"), {.id = u"two"_s, .name = u"Two"_s, .version = u"2"_s}));
        fs::copy_file(inFolder("1"), archive());
        std::atomic<bool> done = false;
        std::thread swapping([&] {
            for (int i = 0; !done; ++i) {
                fs::create_hard_link(inFolder(i % 2 ? "1" : "2"), inFolder("next"));
                fs::rename(inFolder("next"), archive());
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        QStringList seen;
        for (int round = 0; round < 40; ++round)
            seen.append(verdict());
        done = true;
        swapping.join();
        QCOMPARE(seen.count(u"one 1"_s) + seen.count(u"two 2"_s), 40);
    }

    // The second app comes where the listing has no more room, under a limit as some launchers set it.
    void listingCutOff()
    {
        Entries entries = entriesOfIPA({});
        qsizetype listed = 0;
        for (const ZipEntry &entry : entries)
            listed += entry.name.size() + 1;
        entries.append(
            {.name = QByteArray(127 - listed % 64, 'x')}); // so that it is cut at the end of a line
        for (int i = 1'000; i < 3'000; ++i)
            entries.append({.name = QByteArray(59, 'x') + QByteArray::number(i)});
        copyTo("Payload/Second.app")(entries);
        QVERIFY(writeZip(archive(), entries));
        const auto fileSize = Limit(RLIMIT_FSIZE, 64 << 10);
        QVERIFY2(verdict().startsWith(u"Не удалось получить полный список"), qPrintable(m_told));
    }

    void systemFails_data()
    {
        const Rows<std::string, int, QString> row; // option of the run that is struck, and how
        const QString interrupted =
            u"Проверка IPA прервана системой: возможно, не хватает памяти. Повторите попытку."_s;
        row("test killed", "-tqq", SIGKILL, interrupted);
        row("test crashed", "-tqq", SIGABRT, kDamaged);
        row("test asked to end", "-tqq", -80, interrupted);
        row("listing killed", "-Z1", SIGKILL, interrupted);
        row("no memory to load the program", "-p", -127, interrupted);
        row("no room", "-p", -50, u"Не удалось проверить IPA: На устройстве не осталось свободного места."_s);
        row("no zip file, which has the number of a signal", "-tqq", -9, kDamaged);
    }

    // The file is sound: it must not be called damaged.
    void systemFails()
    {
        const auto &[option, how, sentence] = Row<std::string, int, QString>();
        QVERIFY(writeIPA(archive(), {}));
        strike = how;
        struckOption = option;
        verdict();
        struckOption.clear();
        QCOMPARE(m_told, sentence);
    }

    void unreadable()
    {
        linkTo("/proc/self/mem")(archive()); // where nothing is at the beginning
        QCOMPARE(verdict(), u"Не удалось прочитать IPA: Ошибка ввода/вывода."_s);
        fs::remove(archive());
        QVERIFY(writeIPA(archive(), {}));
        fs::permissions(archive(), fs::perms::none);
        ::setfsuid(65534); // root may read all the same, unless it is nobody for a while
        verdict();
        ::setfsuid(0);
        QCOMPARE(m_told, u"Не удалось открыть IPA: Отказано в доступе."_s);
    }

    void shortOfMeans()
    {
        QVERIFY(writeIPA(archive(), {}));
        {
            const auto descriptors = Limit(RLIMIT_NOFILE, 0);
            QCOMPARE(verdict(), u"Не удалось открыть IPA: Слишком много открытых файлов."_s);
        }
        const fs::path temporary = inFolder("tmp");
        fs::create_directory(temporary);
        const auto set = Variable("TMPDIR", QByteArray::fromStdString(temporary.string()));
        QCOMPARE(verdict(), kSound);
        QVERIFY(verdict(u"other"_s) != kSound);
        QVERIFY(fs::is_empty(temporary)); // nothing is left behind
        fs::remove(temporary);
        QVERIFY(writeZip(temporary, {}));
        QVERIFY2(verdict().contains(u"Это не каталог"_s), qPrintable(m_told));
    }

private:
    fs::path inFolder(const std::string &name) const { return *m_folder / name; }
    fs::path archive() const { return inFolder(kName); }
    /// What is found in the archive: identifier and version, or the error.
    QString verdict(const std::optional<QString> &expected = {})
    {
        Error error{u"untouched"_s};
        const auto found = ZarvoValidateIPA(archive(), expected, &error);
        if (found && error.message != u"untouched")
            return u"an error beside a success"_s;
        return m_told = found ? found->id + u' ' + found->version : error.message;
    }

    std::unique_ptr<Folder> m_folder;
    QString m_told;
};

QTEST_GUILESS_MAIN(TestIPAValidation)
#include "tst_ipa_validation.moc"
