// SPDX-License-Identifier: Apache-2.0
// A file descriptor on which every call fails while this lives, and which is whole again afterwards.

#ifndef TESTS_SUPPORT_BROKEN_FILE_H
#define TESTS_SUPPORT_BROKEN_FILE_H

#include <fcntl.h>
#include <unistd.h>

namespace support {

class BrokenFile {
public:
    explicit BrokenFile(int descriptor)
        : m_descriptor(descriptor), m_whole(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0))
    {
        const int useless = ::open("/", O_PATH | O_CLOEXEC);
        ::dup3(useless, m_descriptor, O_CLOEXEC);
        ::close(useless);
    }
    BrokenFile(const BrokenFile&) = delete;
    BrokenFile& operator=(const BrokenFile&) = delete;
    ~BrokenFile()
    {
        ::dup3(m_whole, m_descriptor, O_CLOEXEC);
        ::close(m_whole);
    }

private:
    const int m_descriptor;
    const int m_whole;
};

}  // namespace support

#endif
