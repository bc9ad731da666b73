#pragma once

#include <utility>

#include <unistd.h>

// Owns one file descriptor and closes it; -1 stands for none.
class FileDescriptor
{
public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int fd) noexcept
        : m_fd(fd)
    {
    }
    FileDescriptor(FileDescriptor &&other) noexcept
        : m_fd(std::exchange(other.m_fd, -1))
    {
    }
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { reset(); }

    void reset() noexcept
    {
        if (isValid())
            ::close(std::exchange(m_fd, -1));
    }
    [[nodiscard]] int get() const noexcept { return m_fd; }
    [[nodiscard]] bool isValid() const noexcept { return m_fd >= 0; }

private:
    int m_fd = -1;
};
