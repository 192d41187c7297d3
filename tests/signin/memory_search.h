// Looking for a secret where it must not be. The searcher never holds the secret itself: it would find its
// own.
#pragma once

#include <QByteArray>
#include <QChar>
#include <QString>

#include <cstddef>
#include <utility>
#include <vector>

/// A random text that exists only character by character.
class Canary
{
public:
    /// Of letters or of digits.
    static Canary ofLetters(qsizetype length)
    {
        return of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", length);
    }
    static Canary ofDigits(qsizetype length) { return of("0123456789", length); }
    /// For its way from another process.
    explicit Canary(QByteArray masked)
        : m_masked(std::move(masked))
    {
    }
    QByteArray masked() const { return m_masked; }

    qsizetype size() const { return m_masked.size(); }
    QChar at(qsizetype index) const;
    /// Parts of eight characters, or the whole when it is short. They are what is looked for: memory that was
    /// given back unwiped has its first bytes overwritten, and an outgrown buffer holds the beginning only.
    std::vector<Canary> parts() const;
    /// How often it occurs in the bytes, beginning in the first `starts` of them: as Latin-1, UTF-16 and
    /// UTF-32.
    qsizetype countIn(const char *bytes, std::size_t size, std::size_t starts) const;

private:
    static Canary of(QByteArrayView alphabet, qsizetype length);
    bool isAt(const char *bytes, std::size_t stride) const;

    QByteArray m_masked;
};

/// The part that occurs most often: how often. In all memory of this process that can be read, through
/// /proc/self/mem.
qsizetype CountInMemory(const Canary &canary);
qsizetype CountInFile(const Canary &canary, const QString &path);
/// In the contents and the names of all files below the folder.
qsizetype CountBelow(const Canary &canary, const QString &folder);
