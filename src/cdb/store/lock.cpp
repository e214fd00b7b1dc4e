// SPDX-License-Identifier: Apache-2.0
// The lock file that names the process which writes a store.

#include "cdb/store/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "cdb/model/error.h"

namespace cdb {
namespace {

constexpr mode_t kFileMode = 0640;

std::string Holder(int file)
{
    std::array<char, 32> buffer{};
    const ssize_t count = pread(file, buffer.data(), buffer.size(), 0);
    std::string text(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    text.resize(std::min(text.find('\n'), text.size()));
    return text.empty() ? "another process" : "process " + text;
}

}  // namespace

WriterLock::WriterLock(const std::filesystem::path& directory)
{
    const std::string path = directory / kWriterLockFile;
    m_file = base::UniqueFd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kFileMode));
    if (!m_file) throw FatalError(path + " can't be opened: " + std::strerror(errno));
    if (flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0) {
        const int code = errno;
        const std::string holder = Holder(m_file.Get());
        if (code != EWOULDBLOCK) throw FatalError(path + " can't be locked: " + std::strerror(code));
        throw FatalError("the store in " + directory.string() + " is in use by " + holder +
                         "; stop that one first");
    }
    const std::string text = std::to_string(getpid()) + '\n';
    const bool named = ftruncate(m_file.Get(), 0) == 0 &&
                       pwrite(m_file.Get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
    if (!named) throw FatalError(path + " can't be written: " + std::strerror(errno));
}

}  // namespace cdb
