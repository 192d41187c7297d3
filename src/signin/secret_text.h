// Texts that leave nothing behind in memory.
#pragma once

#include <QStringView>

#include <cstddef>
#include <memory>
#include <vector>

/// Overwrites `size` bytes with zeros; no optimisation removes it. Any thread.
void WipeMemory(void *bytes, std::size_t size);

/// Gives memory back only after it has been overwritten, also when a container outgrows its old place.
template <typename T>
struct WipingAllocator
{
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    explicit WipingAllocator(const WipingAllocator<U> &) noexcept
    {
    }

    T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T *place, std::size_t count)
    {
        WipeMemory(place, count * sizeof(T));
        std::allocator<T>().deallocate(place, count);
    }
    friend bool operator==(const WipingAllocator &, const WipingAllocator &) { return true; }
};

/// Bytes on their way to a descriptor.
using SecretBytes = std::vector<char, WipingAllocator<char>>;

/// A password or a code. Holds it in memory of its own, overwrites what is removed at once and everything at
/// the end, and is copied only by saying so. One thread at a time.
class SecretText
{
public:
    SecretText() = default;
    explicit SecretText(QStringView text);
    SecretText(SecretText &&) noexcept = default;
    SecretText &operator=(SecretText &&) noexcept = default;
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;
    ~SecretText() = default;

    SecretText clone() const { return SecretText(view()); }

    /// In UTF-16 units.
    qsizetype size() const { return static_cast<qsizetype>(m_units.size()); }
    bool isEmpty() const { return m_units.empty(); }
    /// To be looked at, not to be turned into a QString. Valid until the next change.
    QStringView view() const { return {m_units.data(), size()}; }

    /// Puts `text` in the place of `count` units from `position` on; both must lie inside.
    void replace(qsizetype position, qsizetype count, QStringView text);
    void clear();

private:
    std::vector<char16_t, WipingAllocator<char16_t>> m_units;
};

/// `text` and a line feed, as UTF-8.
SecretBytes SecretLine(QStringView text);
