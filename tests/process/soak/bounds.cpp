// SPDX-License-Identifier: Apache-2.0
#include "soak/bounds.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace soak {

namespace {

// What the manager has with all that the walk configures; a life's first look may find it without any of
// that.
constexpr std::size_t kFilesAtWork = 44;
// Sessions that have just ended, connections being made.
constexpr std::size_t kMoreFiles = 24;
constexpr std::size_t kMoreKilobytes = 96 * 1024;

// Sanitizers keep what was given back.
constexpr bool kMemoryCounts =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    false;
#else
    true;
#endif

}  // namespace

Bounds::Size Bounds::SizeOf(pid_t process)
{
    const std::filesystem::path directory = "/proc/" + std::to_string(process);
    Size size;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory / "fd", error))
        if (!entry.path().empty()) ++size.files;
    std::ifstream status(directory / "status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:") status >> size.kilobytes;
    return size;
}

std::optional<std::string> Bounds::Measure(const std::string& name, pid_t process)
{
    const Size now = SizeOf(process);
    const Size& first = m_first.try_emplace(process, now).first->second;
    Size& most = m_most[name];
    most.files = std::max(most.files, now.files);
    most.kilobytes = std::max(most.kilobytes, now.kilobytes);
    std::ostringstream text;
    if (now.files > std::max(first.files, kFilesAtWork) + kMoreFiles)
        text << name << " has " << now.files << " files open, and had " << first.files;
    if (kMemoryCounts && now.kilobytes > first.kilobytes + kMoreKilobytes)
        text << name << " has " << now.kilobytes << " kB in memory, and had " << first.kilobytes;
    if (text.str().empty()) return std::nullopt;
    return text.str();
}

std::string Bounds::Text() const
{
    std::ostringstream text;
    for (const auto& [name, most] : m_most)
        text << (text.str().empty() ? "" : ", ") << name << " " << most.files << " files "
             << most.kilobytes / 1024 << " MB";
    return text.str();
}

}  // namespace soak
