// SPDX-License-Identifier: Apache-2.0
// A process that can open few files more, for tests of what happens then.

#ifndef TESTS_SUPPORT_FEW_FILES_H
#define TESTS_SUPPORT_FEW_FILES_H

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

namespace support {

/// Empty if a process can live without any file to open, else why not: for GTEST_SKIP.
inline const char* WhyNotWithoutFiles()
{
#ifdef __SANITIZE_ADDRESS__
    return "the sanitizers look at memory through a pipe, and take what they can't look at for an error";
#else
    return "";
#endif
}

/// How many files the process has open.
inline std::size_t OpenFiles()
{
    DIR* const files = ::opendir("/proc/self/fd");
    std::size_t count = 0;
    while (::readdir(files) != nullptr) ++count;
    ::closedir(files);
    return count - 3;  // without ".", ".." and the directory itself
}

/// While it lives, the process can open so many files more and no further one.
class FewFiles {
public:
    explicit FewFiles(rlim_t more)
    {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        // New files take the lowest free number; below the highest in use there may be gaps.
        for (int fd = Open(); fd >= 0 && static_cast<rlim_t>(fd) < Highest(); fd = Open())
            m_fillers.push_back(fd);
        const rlimit few{.rlim_cur = Highest() + 1 + more, .rlim_max = m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &few);
    }
    FewFiles(const FewFiles&) = delete;
    FewFiles& operator=(const FewFiles&) = delete;
    ~FewFiles()
    {
        for (const int fd : m_fillers) ::close(fd);
        ::setrlimit(RLIMIT_NOFILE, &m_before);
    }

private:
    static int Open() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }
    /// The highest number in use.
    static rlim_t Highest()
    {
        rlim_t highest = 0;
        DIR* const files = ::opendir("/proc/self/fd");
        const auto own = static_cast<rlim_t>(::dirfd(files));
        while (const dirent* entry = ::readdir(files)) {
            const rlim_t number = std::strtoul(entry->d_name, nullptr, 10);
            if (number != own) highest = std::max(highest, number);
        }
        ::closedir(files);
        return highest;
    }

    rlimit m_before{};
    std::vector<int> m_fillers;
};

}  // namespace support

#endif
