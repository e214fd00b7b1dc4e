// SPDX-License-Identifier: Apache-2.0
// A call that blocks until the test opens it, as a request does while the kernel is busy with others.

#ifndef TESTS_SUPPORT_BARRIER_H
#define TESTS_SUPPORT_BARRIER_H

#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace support {

class Barrier {
public:
    Barrier()
    {
        if (::pipe(m_ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    }
    Barrier(const Barrier&) = delete;
    Barrier& operator=(const Barrier&) = delete;
    ~Barrier()
    {
        LetGo();
        ::close(m_ends[0]);
    }

    /// Returns when the barrier has been opened; from then on at once.
    void Wait() const
    {
        char nothing = 0;
        (void)!::read(m_ends[0], &nothing, 1);
    }
    void LetGo()
    {
        if (m_ends[1] >= 0) ::close(m_ends[1]);
        m_ends[1] = -1;
    }

private:
    std::array<int, 2> m_ends{};
};

}  // namespace support

#endif
