#include "core/private_folder.h"
#include "ipa/file_moving.h"
#include "ipa/ipa_fixture.h"
#include "ipa/ipa_publishing.h"
#include "support/rows.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <fstream>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

const QString kLink = u"В выбранной папке уже есть ссылка с таким именем. Выберите другую папку."_s;
const QString kForeign = u"В выбранной папке уже есть другой файл с таким именем. Он сохранён без изменений. "
                         "Выберите другую папку."_s;
const QString kNotReplaced = u"Не удалось заменить ранее сохранённый IPA."_s;

using FileChange = std::function<void(const fs::path &)>;

const IPAInfo kInfo{u"com.example.app"_s, u"1.0"_s};

// Memory of its own: a volume that is not the one of the temporary files.
constexpr const char *kOtherVolume = "/dev/shm";

// A new file, also in the place of another.
void write(const fs::path &file, const std::string &bytes)
{
    fs::remove(file);
    std::ofstream(file, std::ios::binary) << bytes;
}

size_t entriesIn(const fs::path &folder)
{
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

// What happens before the first, second… exchange or exclusive rename: an errno value makes the call fail.
using Interference = std::function<int(const fs::path &destination)>;
QList<Interference> interferences;

// How many questions for what has a name are answered before none is any more.
int answers = INT_MAX;

} // namespace

// These take the place of the C library's for this program.
extern "C" int lstat(const char *path, struct stat *status) noexcept
{
    errno = EIO;
    return answers-- > 0
               ? static_cast<int>(::syscall(SYS_newfstatat, AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW))
               : -1;
}

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
        m_folder = std::make_unique<Folder>();
        m_chosen = *m_folder / "chosen";
        m_source = *m_folder / "new.ipa";
        m_destination = m_chosen / "Банк 1.0.ipa";
        fs::create_directories(m_chosen);
        QVERIFY(writeIPA(m_source, {.padding = 3 << 20}));
        m_new = contents(m_source);
    }

    void toFreeNames_data()
    {
        const Rows<std::string, QString> row; // the name and why it fails, if so
        const std::string tooLong(256, 'x');
        row("not UTF-8", "\xE0\xFF", {});
        row("as long as can be", tooLong.substr(1), {});
        row("too long", tooLong, u"«%1»: Слишком длинное имя файла."_s.arg(QString(256, u'x')));
        row("no such folder", "none/a.ipa", u"«a.ipa»: Нет такого файла или каталога."_s);
    }

    void toFreeNames()
    {
        const auto &[name, reason] = Row<std::string, QString>();
        const fs::path destination = m_chosen / name;
        Error error{u"untouched"_s};
        QCOMPARE(ZarvoPublishIPA(m_source, destination, kInfo, &error), reason.isEmpty());
        QCOMPARE(error.message, reason.isEmpty() ? u"untouched"_s : u"Не удалось сохранить "_s + reason);
        QCOMPARE(contents(reason.isEmpty() ? destination : m_source), m_new);
        QCOMPARE(fs::exists(m_source), !reason.isEmpty());
        QVERIFY(!reason.isEmpty() || !ZarvoPublishIPA(m_source, m_chosen / "another", kInfo)); // it is gone
    }

    void toTakenNames_data()
    {
        const Rows<QString, FileChange> row; // the refusal and what is there
        const FileChange copy = [](const fs::path &p) { writeIPA(p, {.padding = 100}); };
        row("earlier copy: replaced", {}, copy);
        row("no archive", kForeign, [](const fs::path &p) { write(p, "my notes"); });
        row("another app", kForeign, [](const fs::path &p) { writeIPA(p, {.id = u"com.example.App"_s}); });
        row("another version", kForeign, [](const fs::path &p) { writeIPA(p, {.version = u"1.0.0"_s}); });
        row("as large as the new one", kForeign, [this](const fs::path &p) {
            std::string bytes = m_new;
            bytes[bytes.size() / 2] ^= 1;
            write(p, bytes);
        });
        row("folder", kForeign, [](const fs::path &p) { fs::create_directory(p); });
        row("pipe", kForeign, [](const fs::path &p) { ::mkfifo(p.c_str(), 0600); });
        row("dangling link", kLink, [](const fs::path &p) { fs::create_symlink("nowhere", p); });
        row("link to an earlier copy", kLink, [=](const fs::path &p) {
            copy(p.parent_path() / "copy");
            fs::create_symlink("copy", p);
        });
    }

    void toTakenNames()
    {
        const auto &[message, make] = Row<QString, FileChange>();
        make(m_destination);
        const auto before = StateOf(m_destination);
        const size_t count = entriesIn(m_chosen);
        Error error;
        QCOMPARE(publish(&error), message.isEmpty());
        QCOMPARE(error.message, message);
        QCOMPARE(StateOf(m_destination) == before, !message.isEmpty());
        QCOMPARE(contents(message.isEmpty() ? m_destination : m_source), m_new);
        QCOMPARE(fs::exists(m_source), !message.isEmpty());
        QCOMPARE(entriesIn(m_chosen), count);
    }

    // Also when the info is not the file's: equal bytes need no other proof.
    void sameBytes()
    {
        fs::create_hard_link(m_source, m_destination);
        QVERIFY(publish());
        fs::remove(m_destination);
        fs::copy_file(m_source, m_destination);
        const auto before = StateOf(m_destination);
        QVERIFY(ZarvoPublishIPA(m_source, m_destination, {u"other"_s, u"2"_s}));
        QVERIFY(StateOf(m_destination) == before);
        QCOMPARE(contents(m_source), m_new);
    }

    void otherVolume()
    {
        QTemporaryDir other(QLatin1StringView(kOtherVolume) + u"/zarvo-test-XXXXXX"_s);
        const fs::path folder(other.path().toStdString());
        if (!other.isValid() || StateOf(folder)->device == StateOf(m_source)->device)
            QFAIL("Moving across volumes cannot be seen: /dev/shm and the temporary files share one here.");
        Error error;
        const auto publishThere = [&] { return ZarvoPublishIPA(m_source, folder / "a.ipa", kInfo, &error); };
        fs::permissions(m_source, fs::perms(0644));
        const auto before = StateOf(m_source);
        QVERIFY2(publishThere(), qPrintable(error.message));
        QCOMPARE(contents(folder / "a.ipa"), m_new);
        QVERIFY(fs::status(folder / "a.ipa").permissions() == fs::perms(0644));
        QCOMPARE(StateOf(folder / "a.ipa")->modifiedNanoseconds, before->modifiedNanoseconds);
        QVERIFY(!exists(m_source));

        QVERIFY(writeIPA(m_source, {.padding = 7}));
        QVERIFY(!publishThere());
        QCOMPARE(error.message, kNotReplaced);
        QCOMPARE(contents(folder / "a.ipa"), m_new);
        QCOMPARE(entriesIn(folder), size_t{1});
    }

    void everyWayOfReplacing_data()
    {
        const Rows<ReplaceWay> row;
        row("exchange", ReplaceWay::Exchange);
        row("check, then rename", ReplaceWay::CheckThenRename);
    }

    void everyWayOfReplacing()
    {
        const auto &[way] = Row<ReplaceWay>();
        write(m_destination, "old");
        const auto checked = StateOf(m_destination);
        std::ofstream(m_destination) << "changed since"; // the same file
        QCOMPARE(ReplaceFile(m_source, m_destination, *checked, way), Replacement::Refused);
        QCOMPARE(contents(m_destination), std::string("changed since"));
        QCOMPARE(contents(m_source), m_new);
        QCOMPARE(ReplaceFile(m_source, m_destination, *StateOf(m_destination), way), Replacement::Done);
        QCOMPARE(contents(m_destination), m_new);
        QVERIFY(!exists(m_source));
        fs::rename(m_destination, m_source); // removed meanwhile
        QCOMPARE(ReplaceFile(m_source, m_destination, *checked, way), Replacement::Done);
        QCOMPARE(contents(m_destination), m_new);
        write(m_source, "newer"); // removed after it was looked at
        if (way == ReplaceWay::Exchange)
            interferences = {[](const fs::path &name) { return fs::remove(name) ? 0 : EIO; }, {}};
        QCOMPARE(ReplaceFile(m_source, m_destination, *StateOf(m_destination), way), Replacement::Done);
        interferences.clear();
        QCOMPARE(contents(m_destination), std::string("newer"));
    }

    void foreignComesBetween_data()
    {
        // What happens after the foreign file has come; what is under the name and under the next one.
        const Rows<QList<Interference>, Replacement, std::string, std::string> row;
        const Interference nothing = [](const fs::path &) { return 0; };
        const Interference fails = [](const fs::path &) { return EIO; };
        const Interference removed = [](const fs::path &there) { return fs::remove(there) ? 0 : EIO; };
        const Interference replaced = [](const fs::path &there) { return write(there, "third"), 0; };
        row("put back", {nothing}, Replacement::Refused, "foreign", "");
        row("ours is removed: put back", {removed, nothing}, Replacement::Refused, "foreign", "");
        row("ours is replaced: kept beside the third", {replaced, nothing}, Replacement::Failed, "third",
            "foreign");
        row("cannot be put back: kept beside", {fails, fails, nothing}, Replacement::Failed, "new",
            "foreign");
        row("cannot be moved at all: its folder stays", {fails}, Replacement::Failed, "new", "");
    }

    // A foreign file gets the name after the old one was checked, just before the names are swapped. It is in
    // a private folder for a moment, and is gone with it unless it comes out again.
    void foreignComesBetween()
    {
        const auto &[then, outcome, there, beside] =
            Row<QList<Interference>, Replacement, std::string, std::string>();
        write(m_destination, "old");
        const auto checked = StateOf(m_destination);
        interferences = {[](const fs::path &name) { return write(name, "foreign"), 0; }};
        interferences += then;
        fs::path source;
        {
            const auto folder =
                PrivateFolder::create(QString::fromStdString(m_chosen.string()), u".zarvo-"_s);
            QVERIFY(folder);
            source = fs::path(folder->filePath(u"new.ipa"_s).toStdString());
            write(source, "new");
            QCOMPARE(ReplaceFile(source, m_destination, *checked), outcome);
            interferences.clear();
        }
        QCOMPARE(contents(m_destination), there);
        QCOMPARE(contents(m_chosen / "Банк 1.0 (2).ipa"), beside);
        const bool isLeft = there != "foreign" && beside != "foreign";
        QCOMPARE(contents(source), std::string(isLeft ? "foreign" : ""));
        QCOMPARE(exists(source.parent_path()), isLeft);
    }

    void everyWayOfMoving()
    {
        for (const MoveWay way :
             {MoveWay::RenameExclusively, MoveWay::LinkThenUnlink, MoveWay::ClaimThenRename}) {
            const auto move = [&] { return MoveWithoutReplacing(m_source, m_destination, nullptr, way); };
            write(m_source, "first");
            QVERIFY(move() && !exists(m_source));
            write(m_source, "second");
            QVERIFY(!move());
            QCOMPARE(contents(m_destination) + contents(m_source), std::string("firstsecond"));
            fs::remove(m_source);
            fs::remove(m_destination);
            QVERIFY(!move());
            QCOMPARE(entriesIn(m_chosen), size_t{0}); // nothing to move: the name stays free
        }
    }

    // The empty file that keeps the name does not stay when the system does not tell what has the name.
    void claimOfUnknownState()
    {
        answers = 0;
        Error error;
        const bool moved = MoveWithoutReplacing(m_source, m_destination, &error, MoveWay::ClaimThenRename);
        answers = INT_MAX;
        QVERIFY(!moved && error.message.endsWith(u": Ошибка ввода/вывода."));
        QCOMPARE(contents(m_source), m_new);
        QCOMPARE(entriesIn(m_chosen), size_t{0});
    }

private:
    bool publish(Error *error = nullptr) const
    {
        return ZarvoPublishIPA(m_source, m_destination, kInfo, error);
    }

    std::unique_ptr<Folder> m_folder;
    fs::path m_chosen;
    fs::path m_source;
    fs::path m_destination;
    std::string m_new; // the bytes of the source
};

QTEST_GUILESS_MAIN(TestIPAPublishing)
#include "tst_ipa_publishing.moc"
