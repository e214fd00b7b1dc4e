// SPDX-License-Identifier: Apache-2.0
// The one owner of a file descriptor.

#ifndef BASE_UNIQUE_FD_H
#define BASE_UNIQUE_FD_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace base {

/// Closes its descriptor when it goes, and leaves errno as it was, so that a failure can be named after it.
/// Negative: it has none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : m_descriptor(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : m_descriptor(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        other.Close();
        return *this;
    }
    ~UniqueFd() { Close(); }

    [[nodiscard]] int Get() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }
    /// The caller closes it from now on.
    [[nodiscard]] int Release() { return std::exchange(m_descriptor, -1); }
    void Close()
    {
        const int error = errno;
        if (m_descriptor >= 0) ::close(std::exchange(m_descriptor, -1));
        errno = error;
    }

private:
    int m_descriptor = -1;
};

}  // namespace base

#endif
