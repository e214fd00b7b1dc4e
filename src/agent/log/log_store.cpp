// SPDX-License-Identifier: Apache-2.0
#include "agent/log/log_store.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace agent {
namespace {

bool IsEarlier(const LogLine& one, const LogLine& other) { return one.timeUs < other.timeUs; }

std::size_t BytesOf(const LogLine& line)
{
    return sizeof line + line.process.size() + line.place.size() + line.text.size();
}

}  // namespace

LogStore::Lines& LogStore::LinesOf(const std::string& process)
{
    if (const auto found = m_processes.find(process); found != m_processes.end()) return found->second;
    return m_processes[m_processes.size() < m_limits.processes ? process : std::string()];
}

void LogStore::Take(LogLine line)
{
    const std::lock_guard lock(m_mutex);
    Lines& own = LinesOf(line.process);
    own.bytes += BytesOf(line);
    // Lines that have waited for cdbd may come after later ones.
    auto at = own.lines.end();
    while (at != own.lines.begin() && IsEarlier(line, *std::prev(at))) --at;
    own.lines.insert(at, std::move(line));
    while (own.lines.size() > m_limits.lines || own.bytes > m_limits.bytes) {
        own.bytes -= BytesOf(own.lines.front());
        own.lines.pop_front();
    }
}

std::vector<LogLine> LogStore::Last(std::size_t lines, std::string_view process) const
{
    std::vector<LogLine> last;
    const std::lock_guard lock(m_mutex);
    for (const auto& [name, each] : m_processes) {
        std::size_t taken = 0;
        for (auto at = each.lines.rbegin(); at != each.lines.rend() && taken < lines; ++at) {
            if (!process.empty() && at->process != process) continue;
            last.push_back(*at);
            ++taken;
        }
    }
    // Lines of one time stay in their order, which is backwards until here.
    std::ranges::reverse(last);
    std::ranges::stable_sort(last, IsEarlier);
    if (last.size() > lines) last.erase(last.begin(), last.end() - static_cast<std::ptrdiff_t>(lines));
    return last;
}

}  // namespace agent
