// Where the history of phones is stored: the program's settings.
#pragma once

#include <QVariant>

#include <mutex>
#include <optional>

class Background;

/// Writes the history without holding up the window: a disk may be slow. One thread writes at a time, and of
/// what has come meanwhile only the newest. Outlives the threads of the `Background` that it is given.
class HistoryWriter
{
public:
    /// Main thread; returns at once. The settings keep whatever else they hold; of two programs that write at
    /// once the last one's stands, whole. What cannot be written leaves the old settings as they were,
    /// without a word: the next change is stored with it.
    void store(QVariantList history, Background &background);

    /// What is stored; any thread. Waits for nothing but the disk.
    static QVariant load();

private:
    void write();
    std::optional<QVariantList> next();

    std::mutex m_mutex;
    std::optional<QVariantList> m_newest; // not written yet
    bool m_isWriting = false;
};
