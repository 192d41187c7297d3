#include "ipa/ipa_publishing.h"

#include "core/whole_file.h"
#include "ipa/file_moving.h"

#include <cerrno>
#include <cstring>
#include <vector>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace {

constexpr size_t kCompareBlock = size_t{256} << 10;

Error replacingFailed()
{
    return ZarvoError(u"Не удалось заменить ранее сохранённый IPA."_s);
}

Error foreignFile()
{
    return ZarvoError(u"В выбранной папке уже есть другой файл с таким именем. Он сохранён без изменений. "
                      "Выберите другую папку."_s);
}

// Fills the block unless the file ends before; nothing when it cannot be read.
std::optional<size_t> readBlock(const FileDescriptor &file, std::vector<char> &block, off_t offset)
{
    size_t filled = 0;
    while (filled < block.size()) {
        const ssize_t got = ::pread(file.get(), block.data() + filled, block.size() - filled,
                                    offset + static_cast<off_t>(filled));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            break;
        filled += static_cast<size_t>(got);
    }
    return filled;
}

bool haveEqualContents(const FileDescriptor &one, const FileDescriptor &other)
{
    const auto oneState = StateOf(one);
    const auto otherState = StateOf(other);
    if (!oneState || !otherState || oneState->size != otherState->size)
        return false;
    std::vector<char> oneBlock(kCompareBlock);
    std::vector<char> otherBlock(kCompareBlock);
    for (off_t offset = 0;;) {
        const auto got = readBlock(one, oneBlock, offset);
        const auto otherGot = readBlock(other, otherBlock, offset);
        if (!got || got != otherGot || std::memcmp(oneBlock.data(), otherBlock.data(), *got) != 0)
            return false;
        if (*got == 0)
            return true;
        offset += static_cast<off_t>(*got);
    }
}

// What has its name stays where it is: a disk that fails at this very last step takes nothing back.
void settle(const fs::path &destination)
{
    static_cast<void>(SyncFolderOf(destination));
}

bool moveToFreeName(const fs::path &source, const FileDescriptor &opened, const fs::path &destination,
                    Error *error)
{
    if (const int number = SyncFile(opened))
        return Fail(error, SavingFailed(destination, number));
    if (!MoveWithoutReplacing(source, destination, error))
        return false;
    settle(destination);
    return true;
}

bool isEarlierCopy(const FileDescriptor &existing, const fs::path &destination, const IPAInfo &info)
{
    // By the file that is held where that is possible: the name may lead to another one by now.
    const auto saved = ZarvoValidateIPA(PathOfHeldFile(existing).value_or(destination), info.id);
    return saved && saved->version == info.version;
}

bool replaceEarlierCopy(const fs::path &source, const FileDescriptor &opened, const fs::path &destination,
                        const FileState &checked, Error *error)
{
    if (SyncFile(opened) != 0)
        return Fail(error, replacingFailed());
    switch (ReplaceFile(source, destination, checked)) {
    case Replacement::Refused:
        return Fail(error, foreignFile());
    case Replacement::Failed:
        return Fail(error, replacingFailed());
    case Replacement::Done:
        break;
    }
    settle(destination);
    return true;
}

} // namespace

bool ZarvoPublishIPA(const fs::path &source, const fs::path &destination, const IPAInfo &info, Error *error)
{
    std::error_code unanswered;
    const fs::file_type there = fs::symlink_status(destination, unanswered).type();
    if (there == fs::file_type::symlink)
        return Fail(
            error, ZarvoError(u"В выбранной папке уже есть ссылка с таким именем. Выберите другую папку."_s));
    const FileDescriptor opened = OpenOrdinaryFile(source);
    const int openingFailed = errno;
    if (there == fs::file_type::not_found || unanswered)
        return opened.isOpen() ? moveToFreeName(source, opened, destination, error)
                               : Fail(error, SavingFailed(destination, openingFailed));

    const FileDescriptor existing = OpenOrdinaryFile(destination);
    const auto state = existing.isOpen() ? StateOf(existing) : std::nullopt;
    if (!state)
        return Fail(error, foreignFile());
    if (opened.isOpen() && haveEqualContents(opened, existing)) {
        static_cast<void>(SyncFile(existing));
        settle(destination);
        return true;
    }
    if (!isEarlierCopy(existing, destination, info))
        return Fail(error, foreignFile());
    return opened.isOpen() ? replaceEarlierCopy(source, opened, destination, *state, error)
                           : Fail(error, replacingFailed());
}
