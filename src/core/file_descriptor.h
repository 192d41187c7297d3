// Ownership of one file descriptor.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

/// Closes its descriptor when it dies. Movable. Keeps errno on closing.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    FileDescriptor(FileDescriptor &&other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {
    }
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_descriptor = std::exchange(other.m_descriptor, -1);
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor >= 0; }
    /// Hands the descriptor over to the caller.
    int release() { return std::exchange(m_descriptor, -1); }
    void reset()
    {
        if (m_descriptor < 0)
            return;
        const int number = errno;
        ::close(std::exchange(m_descriptor, -1));
        errno = number;
    }

private:
    int m_descriptor = -1;
};

/// Makes a pipe that no child inherits; false, with errno, when the system has none left.
inline bool makePipe(FileDescriptor &readEnd, FileDescriptor &writeEnd)
{
    int ends[2];
#ifdef __linux__
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return false;
#else
    if (::pipe(ends) != 0)
        return false;
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
#endif
    readEnd = FileDescriptor(ends[0]);
    writeEnd = FileDescriptor(ends[1]);
    return true;
}
