// SPDX-License-Identifier: Apache-2.0
#include "cli/state_text.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "base/number.h"
#include "base/text.h"
#include "base/version.h"
#include "cli/state_node.h"
#include "cli/text_table.h"

namespace cli {
namespace {

constexpr std::size_t kIndent = 2;
constexpr std::size_t kColumns = 100;

std::string Titled(std::string_view title, const std::string& content)
{
    return std::string(title) + "\n" + (content.empty() ? "  none\n" : content);
}

std::string Section(std::string_view title, const TextTable& table)
{
    return Titled(title, table.Empty() ? "" : table.Text(kIndent));
}

/// The age that the leaf has, for people; "-" without one: it never happened.
std::string Age(const Children& node, std::string_view leaf)
{
    const auto seconds = base::ToNumber<std::uint64_t>(node.Value(leaf));
    return seconds ? AgeText(*seconds) : "-";
}

std::string ManagerText(const Children& manager)
{
    TextTable table({});
    const bool session = manager.Value("connected") == "true";
    table.Add({"Session", session ? manager.Value("session") + ", since " + manager.Time("since")
                                  : "none: the configuration daemon is not connected"});
    table.Add({"Process", manager.Value("pid")});
    table.Add({"Operations", manager.Value("operations")});
    if (manager.First("journal")) table.Add({"Journal", manager.Value("journal")});
    table.Add({"Sampling by", manager.Value("packet-source")});
    if (manager.First("packet-source-reason")) table.Add({"Reason", manager.Value("packet-source-reason")});
    if (manager.First("added-direction")) table.Add({"Also sampled", manager.Value("added-direction")});
    if (manager.First("discard-limit"))
        table.Add({"Discards", "at most " + manager.Value("discard-limit") + " notifications a second"});
    manager.ForEach("limitation", [&](const lyd_node* node) {
        table.Add({"Limitation", lyd_get_value(node)});
    });
    return Section("Manager", table);
}

std::string AgentText(const Children& sflow)
{
    TextTable table({});
    table.Add({"Address", sflow.Value("agent-address")});
    if (sflow.First("sub-agent")) table.Add({"Sub-agent", sflow.Value("sub-agent")});
    return Section("Agent", table);
}

/// Whether the manager has settings of its own for the collector that are not the defaults.
bool SendsSpecially(const Children& collector)
{
    const std::string dscp = collector.Value("dscp");
    return collector.First("source-address") || collector.First("device") || (dscp != "0" && dscp != "-") ||
           collector.Value("discards") == "true";
}

std::string CollectorsText(const Children& sflow)
{
    TextTable settings({"Name", "Address", "Port", "Datagram size"});
    TextTable sending({"Name", "From", "Device or VRF", "DSCP", "Discards"});
    TextTable traffic({"Name", "Datagrams", "Bytes", "Packet samples", "Counter samples", "Lost", "Errors",
                       "Last datagram"});
    TextTable errors({"Name", "When", "Error"});
    sflow.ForEach("collector", [&](const lyd_node* node) {
        const Children collector(node);
        const std::string name = collector.Value("name");
        settings.Add(
            {name, collector.Value("address"), collector.Value("port"), collector.Value("datagram-size")});
        if (SendsSpecially(collector))
            sending.Add(
                {name, collector.Value("source-address"), collector.Value("device"), collector.Value("dscp"),
                 collector.Value("discards") == "true" ? collector.Value("discards-sent") + " sent" : "-"});
        traffic.Add({name, collector.Value("packets-sent"), collector.Value("bytes-sent"),
                     collector.Value("flow-samples-sent"), collector.Value("counter-samples-sent"),
                     collector.Value("packets-lost"), collector.Value("errors"),
                     Age(collector, "last-packet-age")});
        if (collector.First("last-error"))
            errors.Add({name, Age(collector, "last-error-age"), collector.Value("last-error")});
    });
    std::string text = Section("Collectors", settings);
    if (!sending.Empty()) text += "\n" + Section("Datagrams to collectors", sending);
    if (!traffic.Empty()) text += "\n" + Section("Sent to collectors", traffic);
    if (!errors.Empty()) text += "\n" + Section("Last errors of collectors", errors);
    return text;
}

/// What an operator calls the interface's condition.
std::string LinkText(const Children& interface)
{
    if (!interface.First("kernel-interface")) return "missing";
    if (interface.Value("admin-status") != "up") return "down";
    return interface.Value("oper-status") == "up" ? "up" : "no link";
}

std::string RateSource(const Children& interface)
{
    const std::string source = interface.Value("sampling-rate-source");
    return source == "own-setting" ? "own setting" : source == "speed-class" ? "speed class" : source;
}

std::string InterfacesText(const Children& sflow)
{
    TextTable settings(
        {"Name", "Kernel", "Index", "Sampling", "Rate from", "Header", "Polling", "Direction"});
    TextTable traffic({"Name", "Link", "Packets seen", "Samples", "Dropped", "Unwanted", "Last sample"});
    TextTable attached({"Name", "Counters sent", "Last sent", "Counters to", "Packet samples to"});
    sflow.ForEach("interface", [&](const lyd_node* node) {
        const Children interface(node);
        const std::string name = interface.Value("name");
        const std::string polling = interface.Value("polling-interval");
        const std::string rate = interface.Value("sampling-rate");
        settings.Add({name, interface.Value("kernel-interface"), interface.Value("ifindex"),
                      rate == "0" ? "off" : "1 in " + rate, RateSource(interface),
                      interface.Value("max-header-size"), polling == "0" ? "off" : polling + " s",
                      interface.Value("direction")});
        traffic.Add({name, LinkText(interface), interface.Value("packets-seen"),
                     interface.Value("packets-sampled"), interface.Value("drops-buffer"),
                     interface.Value("drops-no-collector"), Age(interface, "last-sample-age")});
        attached.Add({name, interface.Value("counters-sent"), Age(interface, "last-counters-age"),
                      interface.Values("counter-collector"), interface.Values("flow-collector")});
    });
    std::string text = Section("Interfaces", settings);
    if (settings.Empty()) return text;
    text += "\n" + Section("Packets of interfaces", traffic);
    return text + "\n" + Section("Collectors of interfaces", attached);
}

std::string DropsText(const Children& sflow)
{
    TextTable packets({"Interface", "Reason", "Packets", "Rate", "Last", "Code", "Function"});
    TextTable interfaces({"Interface", "Index", "Packets", "Not told"});
    sflow.ForEach("drops", [&](const lyd_node* node) {
        const Children drops(node);
        const std::string name = drops.Value("interface");
        interfaces.Add(
            {name, drops.Value("ifindex"), drops.Value("packets"), drops.Value("packets-not-told")});
        drops.ForEach("reason", [&](const lyd_node* child) {
            const Children reason(child);
            packets.Add({name, reason.Value("name"), reason.Value("packets"), reason.Value("rate") + "/s",
                         Age(reason, "last-age"), reason.Value("code"), reason.Value("function")});
        });
    });
    const Children manager = sflow.Of("manager");
    if (manager.Value("discard-interfaces") == "none")
        return "Dropped packets\n  not looked at: " + manager.Value("discard-interfaces-reason") + "\n";
    std::string text = Section("Dropped packets", packets);
    if (!interfaces.Empty()) text += "\n" + Section("Dropped packets by interface", interfaces);
    return text;
}

/// Appends the text, broken at blanks into lines from the column `from` to the last one; the first line
/// begins where `out` ends.
void AppendWrapped(std::string_view text, std::size_t from, std::string& out)
{
    constexpr std::size_t kMin = 40;  // if a long name leaves less, lines are too long
    const std::size_t width = std::max(kMin, kColumns - std::min(from, kColumns));
    while (text.size() > width) {
        std::size_t end = text.rfind("; ", width - 1);  // a remedy has a line of its own
        end = end == std::string_view::npos ? text.rfind(' ', width) : end + 1;
        if (end == std::string_view::npos || end == 0) end = std::min(text.find(' ', 1), text.size());
        out.append(text.substr(0, end)).append("\n");
        text.remove_prefix(std::min(text.size(), end + 1));
        if (text.empty()) return;
        out.append(from, ' ');
    }
    out.append(text).append("\n");
}

std::string ProblemsText(const Children& sflow)
{
    std::vector<std::pair<std::string, std::string>> lines;
    std::size_t widest = 0;
    sflow.ForEach("problem", [&](const lyd_node* node) {
        const Children problem(node);
        const std::string subject = problem.Value("subject");
        const std::string name = problem.Value("name");
        lines.emplace_back(base::Printable(subject == name ? subject : subject + " " + name),
                           base::Printable(problem.Value("text")));
        widest = std::max(widest, lines.back().first.size());
    });
    std::string text;
    const std::size_t from = kIndent + widest + 2;
    for (const auto& [label, sentence] : lines) {
        text += std::string(kIndent, ' ') + label + std::string(from - kIndent - label.size(), ' ');
        AppendWrapped(sentence, from, text);
    }
    return Titled("Not flowing", text);
}

}  // namespace

std::string AgeText(std::uint64_t seconds)
{
    constexpr std::uint64_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
    if (seconds == 0) return "just now";
    if (seconds < 2 * kMinute) return std::to_string(seconds) + " s ago";
    if (seconds < 2 * kHour) return std::to_string(seconds / kMinute) + " min ago";
    if (seconds < 2 * kDay) return std::to_string(seconds / kHour) + " h ago";
    return std::to_string(seconds / kDay) + " d ago";
}

std::string SflowText(const lyd_node* state, std::string_view part)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    const bool all = part.empty();
    if (sflow.None() && (all || part == "drops" || part == "problems"))
        return "No sFlow state: the sFlow manager is not connected to the database.\n";
    std::string text;
    const auto add = [&](const std::string& section) { text += (text.empty() ? "" : "\n") + section; };
    if (all) add(ManagerText(sflow.Of("manager")));
    if (all || part == "agent") add(AgentText(sflow));
    if (all || part == "collectors") add(CollectorsText(sflow));
    if (all || part == "interfaces") add(InterfacesText(sflow));
    if (part == "drops" || (all && sflow.First("drops"))) add(DropsText(sflow));
    if (all || part == "problems") add(ProblemsText(sflow));
    return text;
}

std::string ProcessesText(const lyd_node* state)
{
    TextTable table({"Name", "Process", "State", "Role", "Missed", "Since"});
    TextTable times({"Name", "Process", "Connected since", "Last acknowledgement"});
    TextTable uses({"Name", "Process", "Subscription or callpoint"});
    Children(state).Of("system").ForEach("process", [&](const lyd_node* node) {
        const Children process(node);
        const std::string name = process.Value("name");
        const std::string pid = process.Value("pid");
        const std::string health = process.Value("health");
        const bool late = health == "late" || health == "not-awaited";
        table.Add({name, pid, late ? (health == "late" ? "late" : "not waited for") : process.Value("state"),
                   process.Value("role"), process.Value("missed-commits"),
                   process.Time(late ? "health-since" : "connected-since")});
        times.Add({name, pid, process.Time("connected-since"), process.Time("last-acknowledgement")});
        for (const char* use : {"subscription", "callpoint"})
            process.ForEach(use, [&](const lyd_node* each) { uses.Add({name, pid, lyd_get_value(each)}); });
    });
    if (table.Empty()) return "No process is connected to the database.\n";
    return table.Text(0) + "\n" + times.Text(0) + (uses.Empty() ? "" : "\n" + uses.Text(0));
}

std::string VersionsText(const lyd_node* state)
{
    const Children system = Children(state).Of("system");
    TextTable table({"Program", "Version"});
    table.Add({"swcli", base::Version()});
    table.Add({"cdbd", system.Value("version")});
    system.ForEach("process", [&](const lyd_node* node) {
        const Children process(node);
        table.Add({process.Value("name"), process.Value("version")});
    });
    return table.Text(0);
}

std::string FaultsText(const lyd_node* state)
{
    TextTable table({"Number", "Time", "Process", "Kind", "Reported by", "Text"});
    Children(state).Of("system").ForEach("fault", [&](const lyd_node* node) {
        const Children fault(node);
        const std::string kind = fault.Value("kind");
        table.Add({fault.Value("number"), fault.Time("time"),
                   fault.Value("process") + "[" + fault.Value("pid") + "]",
                   kind == "0"   ? "0 exception"
                   : kind == "1" ? "1 failure"
                                 : kind,
                   fault.Value("function") + " (" + fault.Value("file") + ":" + fault.Value("line") + ")",
                   fault.Value("text")});
    });
    return table.Empty() ? "No fault was reported.\n" : table.Text(0);
}

}  // namespace cli
