// Folders that only this user can enter and that are gone when their owner is.
#pragma once

#include "core/error.h"

#include <QString>

#include <chrono>
#include <optional>

/// A folder with mode 0700, removed with all it holds when the object dies. Movable. Any thread; one owner at
/// a time.
class PrivateFolder
{
public:
    /// Makes `<parent>/<prefix><UUID>` (no missing parents are made). Fails with the system's reason.
    static std::optional<PrivateFolder> create(const QString &parent, const QString &prefix,
                                               Error *error = nullptr);
    /// In the folder for temporary files, which follows TMPDIR.
    static std::optional<PrivateFolder> createTemporary(Error *error = nullptr);

    PrivateFolder(PrivateFolder &&other) noexcept;
    PrivateFolder &operator=(PrivateFolder &&other) noexcept;
    PrivateFolder(const PrivateFolder &) = delete;
    PrivateFolder &operator=(const PrivateFolder &) = delete;
    ~PrivateFolder();

    /// Absolute.
    const QString &path() const { return m_path; }
    /// The absolute path of `name` inside.
    QString filePath(const QString &name) const;

    /// Removes every folder that is alive in this process: for the way out of the program, when the threads
    /// that own them are not waited for. Folders made afterwards fail. Waits at most `limit`, whatever a file
    /// system does; true when all are gone by then.
    static bool removeAll(std::chrono::milliseconds limit);

    /// Lets the folder of this process that holds `file` be: it is not removed any more. For a foreign file
    /// that has got into it and cannot be brought out.
    static void leaveHolderOf(const QString &file);

private:
    explicit PrivateFolder(QString path);
    void remove();

    QString m_path;
};
