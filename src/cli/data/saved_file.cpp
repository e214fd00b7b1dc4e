// SPDX-License-Identifier: Apache-2.0
#include "cli/data/saved_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "cli/data/error.h"

namespace cli {
namespace {

/// What umask(2) leaves of 0666.
mode_t NewMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666U & ~mask;
}

}  // namespace

SavedFile::SavedFile(const std::string& path) : m_path(path), m_target(path)
{
    struct stat there {};
    const bool exists = ::stat(path.c_str(), &there) == 0;
    if (exists && S_ISDIR(there.st_mode)) Refuse(std::strerror(EISDIR));
    if (exists && !S_ISREG(there.st_mode)) Refuse("it is there and is no regular file");
    std::error_code problem;
    if (exists) m_target = std::filesystem::canonical(path, problem).string();
    if (problem) Refuse(problem.message());
    m_aside = m_target + ".XXXXXX";
    const int file = ::mkostemp(m_aside.data(), O_CLOEXEC);
    const int code = errno;
    if (file < 0) {
        m_aside.clear();
        Refuse(std::strerror(code));
    }
    m_file.reset(::fdopen(file, "w"));
    // Only root can; with another's file in a directory of one's own it becomes one's own.
    if (exists && ::fchown(file, there.st_uid, there.st_gid) != 0) errno = 0;
    if (!m_file || ::fchmod(file, exists ? there.st_mode & 07777U : NewMode()) != 0)
        Refuse(std::strerror(errno));
}

SavedFile::~SavedFile()
{
    if (!m_aside.empty()) ::unlink(m_aside.c_str());
}

void SavedFile::Write(std::string_view text) { std::fwrite(text.data(), 1, text.size(), m_file.get()); }

void SavedFile::Place()
{
    const bool isThere = std::fflush(m_file.get()) == 0 && std::ferror(m_file.get()) == 0 &&
                         ::fsync(::fileno(m_file.get())) == 0 &&
                         ::rename(m_aside.c_str(), m_target.c_str()) == 0;
    if (!isThere) Refuse(std::strerror(errno));
    m_aside.clear();
}

void SavedFile::Refuse(const std::string& why) const { throw Error("can't write " + m_path + ": " + why); }

}  // namespace cli
