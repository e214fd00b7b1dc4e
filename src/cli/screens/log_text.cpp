// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/log_text.h"

#include <libyang/libyang.h>

#include <array>
#include <ctime>

#include <fmt/format.h>

#include "cli/data/state_node.h"
#include "cli/screens/text_table.h"

namespace cli {
namespace {

constexpr long kNsInMs = 1'000'000;

std::string Formatted(std::time_t time, const char* format)
{
    std::tm parts{};
    std::array<char, 64> text{};
    if (::localtime_r(&time, &parts) == nullptr) return {};
    return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

/// "Nov 21 03:20:11.123" for an RFC 3339 time; the time itself if it is none.
std::string LocalTime(const std::string& dateAndTime)
{
    std::timespec time{};
    if (::ly_time_str2ts(dateAndTime.c_str(), &time) != LY_SUCCESS) return dateAndTime;
    return fmt::format("{}.{:03}", Formatted(time.tv_sec, "%b %d %H:%M:%S"), time.tv_nsec / kNsInMs);
}

}  // namespace

std::string LogText(const lyd_node* output, const std::string& process)
{
    const std::string heading = "Time (" + Formatted(std::time(nullptr), "%Z") + ")";
    TextTable table({heading.c_str(), "Process", "Severity", "Text"});
    Children(output).ForEach("entry", [&](const lyd_node* node) {
        const Children entry(node);
        table.Add({LocalTime(entry.Value("time")), entry.Value("process"), entry.Value("severity"),
                   entry.Value("text")});
    });
    if (table.Empty())
        return "There is no line" + (process.empty() ? std::string() : " of " + process) +
               " in the log since the database was started.\n";
    return table.Text(0);
}

}  // namespace cli
