// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_summary.h"

#include <algorithm>
#include <array>
#include <vector>

#include "cli/data/state_node.h"
#include "cli/screens/fact_list.h"
#include "cli/screens/sflow_problems.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

constexpr std::size_t kMostLines = 20;
constexpr std::size_t kMostCauses = 5;

std::size_t LinesOf(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count(text, '\n'));
}

/// "sflow-app 812, sflow-mgr 813 (late)".
std::string ProcessesOf(const Children& system)
{
    static constexpr std::array<std::string_view, 2> kNeeded = {"sflow-app", "sflow-mgr"};
    std::string text;
    for (const std::string_view needed : kNeeded) {
        std::string one;
        system.ForEach("process", [&](const lyd_node* node) {
            const Children process(node);
            if (process.Value("name") != needed) return;
            one = " " + process.Value("pid");
            const std::string health = process.Value("health");
            if (health == "late") one += " (late)";
            if (health == "not-awaited") one += " (not waited for)";
        });
        text += (text.empty() ? "" : ", ") + std::string(needed) + (one.empty() ? " is not connected" : one);
    }
    return text;
}

struct Count {
    std::size_t of = 0, all = 0;
    [[nodiscard]] std::string Text() const { return std::to_string(of) + " of " + std::to_string(all); }
};

template <typename Predicate>
Count CountOf(const Children& sflow, std::string_view list, Predicate counts)
{
    Count count;
    sflow.ForEach(list, [&](const lyd_node* node) {
        ++count.all;
        if (counts(Children(node))) ++count.of;
    });
    return count;
}

std::string SourceOf(const Children& manager)
{
    const std::string source = manager.Value("packet-source");
    return source == "-" || source == "none" ? "" : ", by " + source;
}

/// "2 broken, 1 off by configuration".
std::string CountsOf(const Children& sflow)
{
    std::array<std::size_t, 3> counts{};
    for (const Cause& cause : CausesOf(sflow))
        counts.at(static_cast<std::size_t>(cause.severity)) += cause.names.size();
    static constexpr std::array kTexts = {" broken", " off by configuration", " idle"};
    std::string text;
    for (std::size_t i = 0; i < counts.size(); ++i)
        if (counts[i] != 0) text += (text.empty() ? "" : ", ") + std::to_string(counts[i]) + kTexts[i];
    return text.empty() ? "none" : text;
}

/// The first causes of what is broken, as many as have room in that many lines.
std::string BrokenText(const Children& sflow, std::size_t lines, std::size_t width)
{
    std::vector<Cause> broken = CausesOf(sflow);
    std::erase_if(broken, [](const Cause& cause) { return cause.severity != Severity::kBroken; });
    const std::size_t all = broken.size();
    if (broken.size() > kMostCauses) broken.resize(kMostCauses);
    std::string text = CausesText(broken, Severity::kBroken, width);
    while (broken.size() > 1 && LinesOf(text) + (broken.size() < all ? 1 : 0) > lines) {
        broken.pop_back();
        text = CausesText(broken, Severity::kBroken, width);
    }
    if (broken.size() < all)
        text += "  and " + std::to_string(all - broken.size()) + " more: show sflow problems\n";
    return text;
}

}  // namespace

std::string SflowSummary(const lyd_node* sflowState, const lyd_node* processes, std::size_t width)
{
    const Children sflow = Children(sflowState).Of("oam").Of("sflow");
    const Children manager = sflow.Of("manager");
    FactList facts;
    facts.Add("Processes", ProcessesOf(Children(processes).Of("system")));
    const bool session = manager.Value("connected") == "true";
    facts.Add("Session", session ? manager.Value("session") + ", since " + manager.Time("since")
                                 : "none: the configuration daemon is not connected to the manager");
    const std::string address = sflow.Value("agent-address");
    facts.Add("Agent", (address == "0.0.0.0" ? "no address" : address) +
                           (sflow.First("sub-agent") ? ", sub-agent " + sflow.Value("sub-agent") : ""));
    const Count interfaces = CountOf(sflow, "interface", [](const Children& interface) {
        const std::string source = interface.Value("packet-source");
        return source != "none" && source != "-";
    });
    facts.Add("Sampling",
              interfaces.Text() + (interfaces.all == 1 ? " interface" : " interfaces") + SourceOf(manager));
    const Count collectors = CountOf(
        sflow, "collector", [](const Children& collector) { return collector.Value("sending") == "true"; });
    facts.Add("Collectors", collectors.Text() + " receiving");
    facts.Add("Traffic", manager.Value("samples-per-second") + " samples/s, " +
                             manager.Value("datagrams-per-second") + " datagrams/s");
    if (manager.First("counts-since")) facts.Add("Counts", "since " + manager.Time("counts-since"));
    facts.Add("Problems",
              interfaces.all == 0 ? CountsOf(sflow) + "; " + std::string(kNoInterface) : CountsOf(sflow));
    const std::string summary = "sFlow\n" + facts.Text(kIndent, width);
    const std::string broken = BrokenText(sflow, kMostLines - LinesOf(summary) - 1, width);
    return broken.empty() ? summary : summary + "\n" + broken;
}

}  // namespace cli
