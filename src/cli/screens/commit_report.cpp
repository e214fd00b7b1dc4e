// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/commit_report.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/screens/counted.h"
#include "netconf/client.h"

namespace cli {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// "0.8 ms", "120 ms", "2.5 s".
std::string Took(std::chrono::microseconds time)
{
    constexpr double kSecond = 1000;
    constexpr double kExact = 10;  // from here on without a fraction
    const double ms = Milliseconds(time).count();
    if (ms >= kSecond) return fmt::format("{:.1f} s", ms / kSecond);
    return fmt::format("{:.{}f} ms", ms, ms < kExact ? 1 : 0);
}

}  // namespace

std::string CommitReport(const netconf::Reply& reply)
{
    if (!reply.commit) return {};
    std::string text = "commit " + std::to_string(*reply.commit);
    if (reply.changes) text += ": " + Counted(*reply.changes, "change");
    const char* between = ", acknowledged by ";
    for (const auto& [process, took] : reply.acknowledged) {
        text += between + process + " in " + Took(took);
        between = ", ";
    }
    return text;
}

std::string CommitReportJson(const netconf::Reply& reply)
{
    nlohmann::ordered_json report;
    report["commit"] = reply.commit ? nlohmann::ordered_json(*reply.commit) : nlohmann::ordered_json();
    report["changes"] = reply.changes.value_or(0);
    report["acknowledged"] = nlohmann::ordered_json::array();
    for (const auto& [process, took] : reply.acknowledged)
        report["acknowledged"].push_back(
            {{"process", process}, {"milliseconds", Milliseconds(took).count()}});
    report["warnings"] = nlohmann::ordered_json::array();
    for (const netconf::RpcError& error : reply.errors)
        if (error.IsWarning()) report["warnings"].push_back(error.message);
    return report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string OthersText(const netconf::Reply& reply)
{
    std::map<std::string, std::uint64_t> editsOf;  // a user may have several sessions
    for (const auto& [user, edits] : reply.alsoEditedBy) editsOf[user] += edits;
    std::string text;
    for (const auto& [user, edits] : editsOf)
        text += (text.empty() ? "it has taken " : ", ") + Counted(edits, "edit") + " of " + user;
    return text.empty() ? text : text + " in other sessions, too";
}

}  // namespace cli
