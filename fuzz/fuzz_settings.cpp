// What the settings may hold when another program, or a damaged disk, has written them.
#include "device/device_history.h"
#include "device/installed_apps.h"
#include "fuzzing.h"

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;

// A list can claim to have billions of members: Qt takes no for an answer when it asks for their memory.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

const QString kSettingsKey = u"zarvo.deviceHistory.v1"_s;

/// The value that the program would find in a settings file with these bytes. A name of its own for each:
/// files that were read are remembered.
QVariant valueInFile(QByteArrayView bytes)
{
    static const QTemporaryDir folder;
    static int count = 0;
    const QString name = folder.filePath(u"%1.conf"_s.arg(++count));
    QFile file(name);
    Require(file.open(QIODevice::WriteOnly) && file.write(bytes.data(), bytes.size()) == bytes.size(),
            "the folder for temporary files can be written to");
    file.close();
    QVariant value = QSettings(name, QSettings::IniFormat).value(kSettingsKey);
    file.remove();
    return value;
}

bool isUsable(const PhoneEntry &phone)
{
    return !phone.id.isEmpty();
}

void checkHistory(const QVariant &stored)
{
    const QList<PhoneEntry> history = LoadedHistory(stored);
    Require(std::all_of(history.begin(), history.end(), isUsable), "a remembered phone has an identifier");
    Require(LoadedHistory(StoredHistory(history)) == history, "a history is loaded as it was stored");
    for (const PhoneEntry &phone : history) {
        const QList<PhoneEntry> remembered = Remembered(history, phone);
        const auto isSame = [&](const PhoneEntry &other) { return other.id == phone.id; };
        Require(std::count_if(remembered.begin(), remembered.end(), isSame) == 1,
                "a phone is remembered once");
        Require(Forgotten(history, phone.id).size() ==
                    history.size() - std::count_if(history.begin(), history.end(), isSame),
                "a phone is forgotten, and no other");
        HistoryLine(phone, true);
    }
}

/// A list of maps, and anything else that values can be made of: the input's lines, each with a kind, a key
/// and a text.
QVariant builtFrom(QByteArrayView bytes)
{
    QVariantList list;
    QVariantMap map;
    while (!bytes.isEmpty()) {
        const qsizetype end = bytes.indexOf('\n');
        const QByteArrayView line = end < 0 ? bytes : bytes.first(end);
        bytes = end < 0 ? QByteArrayView() : bytes.sliced(end + 1);
        const qsizetype space = std::max<qsizetype>(line.indexOf(' '), 1);
        const QString key = QString::fromUtf8(
            line.first(std::min(space, line.size())).sliced(std::min<qsizetype>(1, line.size())));
        const QString text = TextFrom(line.sliced(std::min(space + 1, line.size())));
        switch (line.isEmpty() ? '\0' : line.front()) {
        case 't':
            map.insert(key, text);
            break;
        case 'b':
            map.insert(key, text.toUtf8());
            break;
        case 'n':
            map.insert(key, text.toLongLong());
            break;
        case 'l':
            map.insert(key, QVariantList{text, map});
            break;
        case 'e':
            list.append(text);
            break;
        default:
            list.append(map);
            map.clear();
        }
    }
    return list;
}

} // namespace

// Values can be of any type, pictures too: they are read when the program has its application object.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static const QCoreApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes = BytesOf(data, size);
    checkHistory(builtFrom(bytes));
    checkHistory(TextFrom(bytes));
    checkHistory(valueInFile(bytes));
    return 0;
}
