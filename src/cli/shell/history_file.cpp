// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/history_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "base/unique_fd.h"

namespace cli {
namespace {

/// Of a file that is longer, its end is read.
constexpr off_t kMostBytes = off_t{1} << 20;

/// A regular file, for its user alone; not open if there is none, or something else has the name.
base::UniqueFd Open(const std::string& path, int flags)
{
    constexpr mode_t kOwnerOnly = 0600;
    // Not blocking: it may be a pipe.
    base::UniqueFd file(::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kOwnerOnly));
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    if ((flags & O_ACCMODE) != O_RDONLY && (status.st_mode & 0777) != kOwnerOnly)
        ::fchmod(file.Get(), kOwnerOnly);
    return file;
}

std::string EndOf(int file)
{
    struct stat status {};
    if (::fstat(file, &status) != 0) return {};
    const off_t begin = status.st_size > kMostBytes ? status.st_size - kMostBytes : 0;
    std::string text(static_cast<std::size_t>(status.st_size - begin), '\0');
    const ssize_t count = ::pread(file, text.data(), text.size(), begin);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    // The first line is not whole.
    if (begin > 0) text.erase(0, text.find('\n') + 1);
    return text;
}

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (end > at) lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

bool WriteAll(int file, const std::string& text)
{
    return ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

std::vector<std::string> HistoryFile::Read() const
{
    const base::UniqueFd file = m_path.empty() ? base::UniqueFd() : Open(m_path, O_RDONLY);
    if (!file) return {};
    std::vector<std::string> lines = LinesOf(EndOf(file.Get()));
    if (lines.size() <= kMostLines) return lines;
    const bool isLong = lines.size() > 2 * kMostLines;
    lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kMostLines));
    if (isLong) Replace(lines);
    return lines;
}

void HistoryFile::Add(const std::string& line) const
{
    if (m_path.empty() || line.find('\n') != std::string::npos) return;
    const base::UniqueFd file = Open(m_path, O_WRONLY | O_CREAT | O_APPEND);
    if (file) WriteAll(file.Get(), line + '\n');
}

void HistoryFile::Replace(const std::vector<std::string>& lines) const
{
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    const std::string fresh = m_path + "." + std::to_string(::getpid());
    const base::UniqueFd file = Open(fresh, O_WRONLY | O_CREAT | O_EXCL);
    if (!file) return;
    if (!WriteAll(file.Get(), text) || std::rename(fresh.c_str(), m_path.c_str()) != 0)
        ::unlink(fresh.c_str());
}

}  // namespace cli
