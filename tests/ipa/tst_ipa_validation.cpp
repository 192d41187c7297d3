#include "ipa/ipa_validation.h"
#include "ipa_writer.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <functional>
#include <thread>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace {

const QString kDamaged = u"IPA повреждён или не является ZIP-архивом."_s;
const QString kNoSingleApp = u"В IPA нет единственного корректного пакета приложения."_s;
const QString kBadInfo = u"В IPA нет корректного Info.plist."_s;
const QString kBadIdentity = u"В IPA нет корректного идентификатора или исполняемого файла."_s;
const QString kNoExecutable = u"В IPA нет исполняемого файла."_s;
const QString kOtherApp = u"Получен IPA другого приложения. Файл не принят."_s;

using Entries = QList<ZipEntry>;
using Change = std::function<void(Entries &)>;

// The entries of a sound IPA, by their place.
constexpr qsizetype kInfo = 2;
constexpr qsizetype kExecutable = 3;

QByteArray infoWith(const QByteArray &members)
{
    return "<plist version=\"1.0\"><dict>" + members + "</dict></plist>";
}

// Each entry of the app `from` once more, in the folder `to`.
void addCopy(Entries &entries, const QByteArray &to)
{
    for (const qsizetype i : {kInfo, kExecutable}) {
        ZipEntry copy = entries[i];
        copy.name.replace("Payload/App.app", to);
        entries.append(copy);
    }
}

void rename(Entries &entries, const QByteArray &to)
{
    for (ZipEntry &entry : entries)
        entry.name.replace("Payload/App.app", to);
}

void changeFile(const fs::path &path, const std::function<void(QByteArray &)> &change)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QByteArray bytes = file.readAll();
    change(bytes);
    file.resize(0);
    file.seek(0);
    QCOMPARE(file.write(bytes), bytes.size());
}

// An environment variable for the time of a test.
class Variable
{
public:
    Variable(const char *name, const QByteArray &value)
        : m_name(name)
        , m_old(qgetenv(name))
        , m_wasSet(qEnvironmentVariableIsSet(name))
    {
        qputenv(name, value);
    }
    ~Variable() { m_wasSet ? qputenv(m_name, m_old) : qunsetenv(m_name); }
    Q_DISABLE_COPY_MOVE(Variable)

private:
    const char *m_name;
    QByteArray m_old;
    bool m_wasSet;
};

} // namespace

class TestIPAValidation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }

    void cleanup()
    {
        fs::remove_all(inFolder("")); // QTemporaryDir cannot name every file
    }

    void accepted_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("version");
        const auto row = [](const char *name, const Change &change, const QString &id = u"com.example.app"_s,
                            const QString &version = u"1.0"_s) {
            QTest::newRow(name) << change << id << version;
        };
        const auto info = [](const QByteArray &members) {
            return [members](Entries &e) { e[kInfo].data = infoWith(members); };
        };
        row("plain", [](Entries &) {});
        row("binary Info.plist", [](Entries &e) { e[kInfo].data = infoPropertyList({.binaryInfo = true}); });
        row("Cyrillic app folder", [](Entries &e) { rename(e, "Payload/Банк Ё.app"); });
        row("app folder with blanks, a dash and a dot",
            [](Entries &e) { rename(e, "Payload/-x My. App.app"); });
        row("plug-ins have an Info.plist, too",
            [](Entries &e) { addCopy(e, "Payload/App.app/PlugIns/P.app"); });
        row("other app outside of Payload", [](Entries &e) { addCopy(e, "Old/Payload/App.app"); });
        row("Info.plist with a suffix", [](Entries &e) { addCopy(e, "Payload/App.app/Info.plist.app"); });
        row("names that are not UTF-8 elsewhere", [](Entries &e) {
            e.append({.name = "Payload/App.app/\xE0\xFF\xEF", .flags = 0});
            e.append({.name = "Payload/App.app/line\nbreak"});
        });
        row("symbolic links", [](Entries &e) {
            e.append({.name = "Payload/App.app/link", .data = "/etc/passwd", .mode = 0120777});
        });
        row("50,000 entries", [](Entries &e) {
            for (int i = 0; i < 50'000; ++i)
                e.append({.name = "Payload/App.app/Assets/a rather long name " + QByteArray::number(i)});
        });
        row("executable with a Cyrillic name", [&](Entries &e) {
            e[kInfo].data = infoPropertyList({.executable = u"Приложение"_s});
            e[kExecutable].name = "Payload/App.app/Приложение";
        });
        row("identifier empty",
            info("<key>CFBundleIdentifier</key><string/><key>CFBundleExecutable</key>"
                 "<string>App</string>"),
            u""_s, u"не указана"_s);
        row("version empty",
            info("<key>CFBundleIdentifier</key><string>a</string><key>CFBundleExecutable</key>"
                 "<string>App</string><key>CFBundleShortVersionString</key><string/>"),
            u"a"_s, u""_s);
        row("version a number",
            info("<key>CFBundleIdentifier</key><string>a</string><key>CFBundleExecutable</key>"
                 "<string>App</string><key>CFBundleShortVersionString</key><real>1.5</real>"),
            u"a"_s, u"не указана"_s);
    }

    void accepted()
    {
        QFETCH(Change, change);
        QFETCH(QString, id);
        QFETCH(QString, version);
        Entries entries = entriesOfIPA({});
        change(entries);
        QVERIFY(writeZip(inFolder("a.ipa"), entries));
        Error error{u"untouched"_s};
        const auto result = ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, &error);
        QVERIFY2(result, qPrintable(error.message));
        QCOMPARE(result->id, id);
        QCOMPARE(result->version, version);
        QCOMPARE(error.message, u"untouched"_s);
    }

    void refused_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("message");
        const auto row = [](const char *name, const QString &message, const Change &change) {
            QTest::newRow(name) << change << message;
        };
        const auto info = [](const QByteArray &data) { return [data](Entries &e) { e[kInfo].data = data; }; };
        const auto members = [info](const QByteArray &list) { return info(infoWith(list)); };

        row("wrong checksum of any entry", kDamaged, [](Entries &e) { e[kExecutable].damaged = true; });
        row("encrypted", kDamaged, [](Entries &e) {
            e[kExecutable].flags |= 1;
            e[kExecutable].data.resize(100);
        });
        row("no entries", kDamaged, [](Entries &e) { e.clear(); });
        row("40 MB of complaints", kDamaged, [](Entries &e) {
            for (int i = 0; i < 12'000; ++i)
                e.append(
                    {.name = QByteArray(3'500, 'x') + QByteArray::number(i), .data = "x", .damaged = true});
        });

        row("no app", kNoSingleApp, [](Entries &e) { e.remove(kInfo); });
        row("two apps", kNoSingleApp, [](Entries &e) { addCopy(e, "Payload/Second.app"); });
        row("Info.plist twice", kNoSingleApp, [](Entries &e) { e.append(e[kInfo]); });
        row("only a plug-in's", kNoSingleApp,
            [](Entries &e) { e[kInfo].name = "Payload/App.app/PlugIns/P.app/Info.plist"; });
        for (const char *const name :
             {"Payload/.app", "payload/App.app", "Payload/A[p]p.app", "Payload/*.app", "Payload/A?p.app",
              "Payload/A\\p.app", "Payload/A..app"})
            row(name, kNoSingleApp, [name](Entries &e) { rename(e, name); });
        row("name that is not UTF-8", kNoSingleApp, [](Entries &e) {
            rename(e, "Payload/\xE0\xFF.app");
            for (ZipEntry &entry : e)
                entry.flags = 0;
        });

        row("Info.plist is no property list", kBadInfo, info("hello"));
        row("Info.plist an array", kBadInfo, info("<plist><array/></plist>"));
        row("Info.plist a link", kBadInfo, [](Entries &e) {
            e[kInfo].data = "Other.plist";
            e[kInfo].mode = 0120777;
        });
        row("Info.plist unpacks to 64 MB", kBadInfo, [](Entries &e) {
            e[kInfo].data = infoPropertyList({}).replace("</plist>", QByteArray(64 << 20, ' ') + "</plist>");
        });

        row("identifier missing", kBadIdentity, members("<key>CFBundleExecutable</key><string>App</string>"));
        row("identifier a number", kBadIdentity,
            members("<key>CFBundleIdentifier</key><integer>1</integer>"
                    "<key>CFBundleExecutable</key><string>App</string>"));
        row("executable missing", kBadIdentity, members("<key>CFBundleIdentifier</key><string>a</string>"));
        row("executable empty", kBadIdentity, info(infoPropertyList({.executable = u""_s})));
        row("executable a path", kBadIdentity, info(infoPropertyList({.executable = u"bin/App"_s})));

        row("executable absent", kNoExecutable, [](Entries &e) { e.remove(kExecutable); });
        row("executable only the start of a name", kNoExecutable,
            [](Entries &e) { e[kExecutable].name += "2"; });
        row("executable in letters of other case", kNoExecutable,
            info(infoPropertyList({.executable = u"app"_s})));
        row("executable a folder", kNoExecutable, [](Entries &e) {
            e[kExecutable].name += "/";
            e[kExecutable].data.clear();
        });
        row("executable of a plug-in", kNoExecutable,
            [](Entries &e) { e[kExecutable].name = "Payload/App.app/PlugIns/App"; });
    }

    void refused()
    {
        QFETCH(Change, change);
        QFETCH(QString, message);
        Entries entries = entriesOfIPA({});
        change(entries);
        QVERIFY(writeZip(inFolder("a.ipa"), entries));
        Error error;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, &error));
        QCOMPARE(error.message, message);
        QCOMPARE_LT(timer.elapsed(), 20'000);
        QVERIFY(!ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, nullptr));
    }

    void expectedIdentifier()
    {
        QVERIFY(writeIPA(inFolder("a.ipa"), {.id = u"com.example.App"_s}));
        QVERIFY(ZarvoValidateIPA(inFolder("a.ipa"), u"com.example.App"_s));
        for (const QString &other : {u"com.example.app"_s, u"com.example.Ap"_s, u""_s}) {
            Error error;
            QVERIFY2(!ZarvoValidateIPA(inFolder("a.ipa"), other, &error), qPrintable(other));
            QCOMPARE(error.message, kOtherApp);
        }
    }

    void notAnOrdinaryFile_data()
    {
        QTest::addColumn<std::string>("name");
        for (const char *const name :
             {"missing", "empty", "folder", "pipe", "dangling link", "link to itself"})
            QTest::newRow(name) << std::string(name);
        QTest::newRow("endless device") << std::string("/dev/zero");
        QTest::newRow("terminal") << std::string("/dev/tty");
        QTest::newRow("no path at all") << std::string();
    }

    void notAnOrdinaryFile()
    {
        QFETCH(std::string, name);
        const fs::path path = name.empty() ? fs::path() : inFolder(name); // an absolute name stays what it is
        QVERIFY(writeIPA(inFolder(name + ".zip"), {}) || name.starts_with("/dev"));
        if (name == "empty")
            changeFile(path, [](QByteArray &) {});
        fs::create_directory(inFolder("folder"));
        QCOMPARE(::mkfifo(inFolder("pipe").c_str(), 0600), 0);
        fs::create_symlink("nowhere", inFolder("dangling link"));
        fs::create_symlink("link to itself", inFolder("link to itself"));
        Error error;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!ZarvoValidateIPA(path, std::nullopt, &error));
        QCOMPARE(error.message, kDamaged);
        QCOMPARE_LT(timer.elapsed(), 5'000);
    }

    void damagedFile_data()
    {
        QTest::addColumn<std::function<void(QByteArray &)>>("change");
        const auto row = [](const char *name, const std::function<void(QByteArray &)> &change) {
            QTest::newRow(name) << change;
        };
        row("directory cut off", [](QByteArray &b) { b.chop(30); });
        row("only half", [](QByteArray &b) { b.truncate(b.size() / 2); });
        row("something before the archive", [](QByteArray &b) { b.prepend("#!/bin/sh\n"); });
        row("a byte of the content", [](QByteArray &b) { b[b.indexOf("\xCF\xFA\xED\xFE")] = 'x'; });
        row("no archive", [](QByteArray &b) { b = "<html>"; });
    }

    void damagedFile()
    {
        QFETCH(std::function<void(QByteArray &)>, change);
        Entries entries = entriesOfIPA({});
        entries[kExecutable].deflated = false;
        QVERIFY(writeZip(inFolder("a.ipa"), entries));
        changeFile(inFolder("a.ipa"), change);
        // A sound neighbour that unzip would look at instead.
        QVERIFY(writeIPA(inFolder("a.ipa.zip"), {}));
        Error error;
        QVERIFY(!ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, &error));
        QCOMPARE(error.message, kDamaged);
    }

    void anyFileName_data()
    {
        QTest::addColumn<std::string>("name");
        for (const char *const name :
             {"Банк — 1.0.ipa", "-d.ipa", "*.ipa", "[ab].ipa", "a?.ipa", "back\\slash.ipa", "line\nbreak.ipa",
              "\xE0\xFF.ipa", " .ipa", "noextension", "e\xCC\x81.ipa"})
            QTest::newRow(QByteArray(name).toPercentEncoding().constData()) << std::string(name);
    }

    void anyFileName()
    {
        QFETCH(std::string, name);
        // Neighbours that the name would match if it were taken for a pattern.
        for (const char *const other : {"a.ipa", "b.ipa", "ab.ipa"})
            QVERIFY(writeIPA(inFolder(other), {.id = u"other"_s}));
        QVERIFY(writeIPA(inFolder("source"), {.id = u"right"_s}));
        fs::rename(inFolder("source"), inFolder(name));
        const auto byAbsolutePath = ZarvoValidateIPA(inFolder(name));
        QVERIFY(byAbsolutePath);
        QCOMPARE(byAbsolutePath->id, u"right"_s);

        const fs::path before = fs::current_path();
        fs::current_path(inFolder(""));
        const auto byRelativePath = ZarvoValidateIPA(fs::path(name));
        fs::current_path(before);
        QVERIFY(byRelativePath);
        QCOMPARE(byRelativePath->id, u"right"_s);

        fs::create_symlink(name, inFolder("link"));
        QVERIFY(ZarvoValidateIPA(inFolder("link")));
    }

    void environmentHasNoSay_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QByteArray>("value");
        for (const char *const variable : {"UNZIP", "UNZIPOPT", "ZIPINFO", "ZIPINFOOPT"}) {
            for (const char *const value : {"-h", "-aa", "-x *"})
                QTest::addRow("%s=%s", variable, value) << QByteArray(variable) << QByteArray(value);
        }
        for (const char *const locale : {"C", "", "ru_RU.KOI8-R", "no_SUCH.LOCALE", "tr_TR.UTF-8"})
            QTest::addRow("LC_ALL=%s", locale) << QByteArray("LC_ALL") << QByteArray(locale);
    }

    void environmentHasNoSay()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, value);
        Entries entries = entriesOfIPA({});
        rename(entries, "Payload/Банк.app");
        QVERIFY(writeZip(inFolder("Ё.ipa"), entries));
        entries[kExecutable].damaged = true;
        QVERIFY(writeZip(inFolder("damaged.ipa"), entries));
        const Variable set(variable.constData(), value);
        std::setlocale(LC_ALL, "");
        const bool sound = ZarvoValidateIPA(inFolder("Ё.ipa")).has_value();
        const bool damaged = ZarvoValidateIPA(inFolder("damaged.ipa")).has_value();
        std::setlocale(LC_ALL, "C.UTF-8");
        QVERIFY(sound);
        QVERIFY(!damaged);
    }

    // Another app gets the name again and again: an answer is about one of them, never about a bit of each.
    void fileSwappedMeanwhile()
    {
        QVERIFY(writeIPA(inFolder("1"), {.id = u"one"_s, .name = u"One"_s, .version = u"1"_s}));
        QVERIFY(writeIPA(inFolder("2"), {.id = u"two"_s, .name = u"Two"_s, .version = u"2"_s}));
        fs::copy_file(inFolder("1"), inFolder("a.ipa"));
        std::atomic<bool> done = false;
        std::thread swapping([&] {
            for (int i = 0; !done; ++i) {
                fs::create_hard_link(inFolder(i % 2 ? "1" : "2"), inFolder("next"));
                fs::rename(inFolder("next"), inFolder("a.ipa"));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        int accepted = 0;
        bool consistent = true;
        for (int round = 0; round < 40; ++round) {
            if (const auto result = ZarvoValidateIPA(inFolder("a.ipa"))) {
                ++accepted;
                consistent = consistent && (result->id == u"one") == (result->version == u"1");
            }
        }
        done = true;
        swapping.join();
        QVERIFY(consistent);
        QCOMPARE(accepted, 40);
    }

    // The second app comes where the listing has no more room, under a limit as some launchers set it.
    void listingCutOff()
    {
        constexpr rlim_t kRoom = 64 << 10;
        Entries entries = entriesOfIPA({});
        for (int i = 0; i < 1'000; ++i)
            entries.append({.name = QByteArray(100, 'x') + QByteArray::number(i)});
        addCopy(entries, "Payload/Second.app");
        QVERIFY(writeZip(inFolder("a.ipa"), entries));
        rlimit before = {};
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &before), 0);
        const rlimit small{kRoom, before.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        Error error;
        const bool accepted = ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, &error).has_value();
        ::setrlimit(RLIMIT_FSIZE, &before);
        QVERIFY(!accepted);
        QVERIFY2(error.message.startsWith(u"Не удалось получить полный список"_s), qPrintable(error.message));
    }

    // The file is sound: it must not be called damaged.
    void noDescriptorLeft()
    {
        QVERIFY(writeIPA(inFolder("a.ipa"), {}));
        rlimit before = {};
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit none{0, before.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
        Error error;
        const bool accepted = ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, &error).has_value();
        ::setrlimit(RLIMIT_NOFILE, &before);
        QVERIFY(!accepted);
        QCOMPARE(error.message, u"Не удалось открыть IPA: Слишком много открытых файлов."_s);
    }

    void leavesNothingBehind()
    {
        QVERIFY(writeIPA(inFolder("a.ipa"), {}));
        const fs::path temporary = inFolder("tmp");
        fs::create_directory(temporary);
        const Variable set("TMPDIR", QByteArray::fromStdString(temporary.string()));
        QVERIFY(ZarvoValidateIPA(inFolder("a.ipa")));
        QVERIFY(!ZarvoValidateIPA(inFolder("a.ipa"), u"other"_s));
        QVERIFY(fs::is_empty(temporary));

        // Where nothing can be written, the system's reason is passed on.
        fs::remove(temporary);
        QVERIFY(writeZip(temporary, {}));
        Error error;
        QVERIFY(!ZarvoValidateIPA(inFolder("a.ipa"), std::nullopt, &error));
        QVERIFY2(error.message.contains(u"Это не каталог"_s), qPrintable(error.message));
    }

private:
    fs::path inFolder(const std::string &name) const
    {
        return fs::path(m_folder->path().toStdString()) / name;
    }

    std::unique_ptr<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(TestIPAValidation)
#include "tst_ipa_validation.moc"
