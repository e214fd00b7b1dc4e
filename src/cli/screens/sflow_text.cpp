// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_text.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <vector>

#include "base/number.h"
#include "cli/data/state_node.h"
#include "cli/screens/fact_list.h"
#include "cli/screens/sflow_problems.h"
#include "cli/screens/state_text.h"
#include "cli/screens/text_table.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

std::string Section(std::string_view title, const TextTable& table, std::size_t width)
{
    return std::string(title) + "\n" + (table.Empty() ? "  none\n" : table.Text(kIndent, width));
}

/// The list's entries in the natural order of their names.
std::vector<Children> EntriesOf(const Children& sflow, std::string_view list)
{
    std::vector<Children> entries;
    sflow.ForEach(list, [&](const lyd_node* node) { entries.emplace_back(node); });
    std::ranges::sort(entries, [](const Children& one, const Children& other) {
        return NaturallyBefore(one.Value("name"), other.Value("name"));
    });
    return entries;
}

/// The age that the leaf has, for people; "-" without one: it never happened.
std::string Age(const Children& node, std::string_view leaf)
{
    const auto seconds = base::ToNumber<std::uint64_t>(node.Value(leaf));
    return seconds ? AgeText(*seconds) : "-";
}

std::string ManagerText(const Children& manager, std::size_t width)
{
    FactList facts;
    const bool session = manager.Value("connected") == "true";
    facts.Add("Session", session ? manager.Value("session") + ", since " + manager.Time("since")
                                 : "none: the configuration daemon is not connected");
    facts.Add("Process", manager.Value("pid"));
    facts.Add("Operations", manager.Value("operations"));
    if (manager.First("counts-since")) facts.Add("Counts since", manager.Time("counts-since"));
    if (manager.First("journal")) facts.Add("Journal", manager.Value("journal"));
    facts.Add("Sampling by", manager.Value("packet-source"));
    if (manager.First("packet-source-reason")) facts.Add("Reason", manager.Value("packet-source-reason"));
    if (manager.First("added-direction")) facts.Add("Also sampled", manager.Value("added-direction"));
    if (manager.First("discard-limit"))
        facts.Add("Discards", "at most " + manager.Value("discard-limit") + " notifications a second");
    manager.ForEach("limitation",
                    [&](const lyd_node* node) { facts.Add("Limitation", lyd_get_value(node)); });
    return "Manager\n" + facts.Text(kIndent, width);
}

std::string AgentText(const Children& sflow, std::size_t width)
{
    FactList facts;
    facts.Add("Address", sflow.Value("agent-address"));
    if (sflow.First("sub-agent")) facts.Add("Sub-agent", sflow.Value("sub-agent"));
    std::string text = "Agent\n" + facts.Text(kIndent, width);
    if (sflow.First("manager")) text += "\n" + ManagerText(sflow.Of("manager"), width);
    return text;
}

/// "ok", or the first reason why it does not flow.
std::string Condition(const Children& entry)
{
    return entry.First("problem") ? entry.Value("problem") : "ok";
}

/// Whether the manager has settings of its own for the collector that are not the defaults.
bool SendsSpecially(const Children& collector)
{
    const std::string dscp = collector.Value("dscp");
    return collector.First("source-address") || collector.First("device") || (dscp != "0" && dscp != "-") ||
           collector.Value("discards") == "true";
}

std::string CollectorsText(const Children& sflow, std::size_t width)
{
    TextTable table({"Name",
                     "Address",
                     {"Port", 2},
                     "Datagrams",
                     {"Samples", 4},
                     {"Counters", 6},
                     {"Lost", 3},
                     {"Errors", 7},
                     {"Last sent", 5},
                     {"Size", 8},
                     {"Bytes", 9},
                     "Condition"});
    TextTable sending({"Name", "From", {"Device or VRF", 1}, {"DSCP", 2}, "Discards"});
    FactList errors;
    for (const Children& collector : EntriesOf(sflow, "collector")) {
        const std::string name = collector.Value("name");
        table.Add({name, collector.Value("address"), collector.Value("port"), collector.Value("packets-sent"),
                   collector.Value("flow-samples-sent"), collector.Value("counter-samples-sent"),
                   collector.Value("packets-lost"), collector.Value("errors"),
                   Age(collector, "last-packet-age"), collector.Value("datagram-size"),
                   collector.Value("bytes-sent"), Condition(collector)});
        if (SendsSpecially(collector))
            sending.Add(
                {name, collector.Value("source-address"), collector.Value("device"), collector.Value("dscp"),
                 collector.Value("discards") == "true" ? collector.Value("discards-sent") + " sent" : "-"});
        if (collector.First("last-error"))
            errors.Add(name, Age(collector, "last-error-age") + ": " + collector.Value("last-error"));
    }
    std::string text = Section("Collectors", table, width);
    if (!sending.Empty()) text += "\n" + Section("Datagrams to collectors", sending, width);
    if (!errors.Empty()) text += "\nLast errors of collectors\n" + errors.Text(kIndent, width);
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

std::string RateText(const Children& interface)
{
    const std::string rate = interface.Value("sampling-rate");
    return rate == "0" ? "off" : "1 in " + rate;
}

std::string PollingText(const Children& interface)
{
    const std::string polling = interface.Value("polling-interval");
    return polling == "0" ? "off" : polling + " s";
}

std::string InterfacesText(const Children& sflow, std::size_t width)
{
    TextTable table({"Name",
                     "Link",
                     "Sampling",
                     {"Polling", 2},
                     {"Seen", 3},
                     {"Samples", 1},
                     {"Last sample", 4},
                     {"Dropped", 6},
                     {"Unwanted", 7},
                     {"Counters", 5},
                     {"Kernel", 8},
                     {"Rate from", 9},
                     {"Direction", 10},
                     {"Header", 11},
                     {"Index", 12},
                     "Condition"});
    for (const Children& interface : EntriesOf(sflow, "interface"))
        table.Add({interface.Value("name"), LinkText(interface), RateText(interface), PollingText(interface),
                   interface.Value("packets-seen"), interface.Value("packets-sampled"),
                   Age(interface, "last-sample-age"), interface.Value("drops-buffer"),
                   interface.Value("drops-no-collector"), interface.Value("counters-sent"),
                   interface.Value("kernel-interface"), RateSource(interface), interface.Value("direction"),
                   interface.Value("max-header-size"), interface.Value("ifindex"), Condition(interface)});
    return Section("Interfaces", table, width);
}

std::string DropsText(const Children& sflow, std::size_t width)
{
    TextTable packets(
        {"Interface", "Reason", "Packets", {"Rate", 1}, {"Last", 2}, {"Code", 3}, {"Function", 4}});
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
    if (manager.Value("discard-interfaces") == "none") {
        FactList facts;
        facts.Add("Not looked at", manager.Value("discard-interfaces-reason"));
        return "Dropped packets\n" + facts.Text(kIndent, width);
    }
    std::string text = Section("Dropped packets", packets, width);
    if (!interfaces.Empty()) text += "\n" + Section("Dropped packets by interface", interfaces, width);
    return text;
}

/// ", the last 3 s ago"; empty if it never happened.
std::string LastText(const Children& node, std::string_view age)
{
    return node.First(age) ? ", the last " + Age(node, age) : "";
}

void DescribeInterface(const Children& interface, FactList& facts)
{
    const std::string link = LinkText(interface);
    facts.Add("Kernel", interface.First("kernel-interface")
                            ? interface.Value("kernel-interface") + ", index " + interface.Value("ifindex") +
                                  ", " + link
                            : link);
    facts.Add("Sampling", RateText(interface) + ", rate from " + RateSource(interface) + ", " +
                              interface.Value("direction") + ", header of " +
                              interface.Value("max-header-size") + " bytes");
    facts.Add("Sampled by", interface.Value("packet-source"));
    if (interface.First("sampling-error")) facts.Add("Error", interface.Value("sampling-error"));
    facts.Add("Packets", interface.Value("packets-seen") + " seen, " + interface.Value("packets-sampled") +
                             " sampled (" + interface.Value("sampled-bytes") + " bytes)" +
                             LastText(interface, "last-sample-age"));
    facts.Add("Dropped", interface.Value("drops-buffer") + " for lack of room, " +
                             interface.Value("drops-no-collector") + " that no collector wants");
    facts.Add("Samples to", interface.Values("flow-collector"));
    facts.Add("Polling", PollingText(interface));
    facts.Add("Counters",
              interface.Value("counters-sent") + " sent" + LastText(interface, "last-counters-age"));
    facts.Add("Counters to", interface.Values("counter-collector"));
}

void DescribeCollector(const Children& collector, FactList& facts)
{
    facts.Add("Address", collector.Value("address") + ", port " + collector.Value("port") +
                             ", datagrams of at most " + collector.Value("datagram-size") + " bytes");
    if (SendsSpecially(collector))
        facts.Add("Sent from", collector.Value("source-address") + ", device or VRF " +
                                   collector.Value("device") + ", DSCP " + collector.Value("dscp"));
    facts.Add("Datagrams", collector.Value("packets-sent") + " sent, " + collector.Value("bytes-sent") +
                               " bytes" + LastText(collector, "last-packet-age"));
    facts.Add("Samples", collector.Value("flow-samples-sent") + " of packets, " +
                             collector.Value("counter-samples-sent") + " of counters, " +
                             collector.Value("discards-sent") + " of discarded packets");
    facts.Add("Lost", collector.Value("packets-lost") + " datagrams with " + collector.Value("samples-lost") +
                          " samples");
    facts.Add("Errors", collector.Value("errors"));
    if (collector.First("last-error"))
        facts.Add("Last error", Age(collector, "last-error-age") + ": " + collector.Value("last-error"));
}

}  // namespace

std::string SflowElements(std::string_view part)
{
    if (part == "agent") return "<manager/><agent-address/><sub-agent/>";
    if (part == "collectors") return "<collector/>";
    if (part == "interfaces") return "<interface/>";
    // With what says whether drops are looked at.
    if (part == "drops")
        return "<manager><discard-interfaces/><discard-interfaces-reason/></manager><drops/>";
    // With the session, for without a manager there are no problems either.
    if (part == "problems") return "<manager><session/></manager><problem/>";
    return "";
}

std::string SflowText(const lyd_node* state, std::string_view part, std::size_t width)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    if (sflow.None() && (part == "drops" || part == "problems"))
        return "No sFlow state: the sFlow manager is not connected to the database.\n";
    if (part == "agent") return AgentText(sflow, width);
    if (part == "collectors") return CollectorsText(sflow, width);
    if (part == "interfaces") return InterfacesText(sflow, width);
    if (part == "drops") return DropsText(sflow, width);
    return ProblemsText(sflow, width);
}

std::set<std::string> EntryNames(const lyd_node* state, std::string_view list)
{
    std::set<std::string> names;
    Children(state).Of("oam").Of("sflow").ForEach(
        list, [&](const lyd_node* node) { names.insert(Children(node).Value("name")); });
    return names;
}

std::string ProblemOf(const lyd_node* state, std::string_view list, std::string_view name)
{
    std::string text;
    Children(state).Of("oam").Of("sflow").ForEach("problem", [&](const lyd_node* node) {
        const Children problem(node);
        if (text.empty() && problem.Value("subject") == list && problem.Value("name") == name)
            text = problem.Value("text");
    });
    return text;
}

std::string SflowDetail(const lyd_node* state, std::string_view list, std::size_t width)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    std::string text;
    for (const Children& entry : EntriesOf(sflow, list)) {
        FactList facts;
        if (list == "interface")
            DescribeInterface(entry, facts);
        else
            DescribeCollector(entry, facts);
        sflow.ForEach("problem", [&](const lyd_node* node) {
            const Children problem(node);
            if (problem.Value("subject") == list && problem.Value("name") == entry.Value("name"))
                facts.Add("Problem", problem.Value("severity") + ": " + problem.Value("text"));
        });
        text += (text.empty() ? "" : "\n") + entry.Value("name") + "\n" + facts.Text(kIndent, width);
    }
    return text.empty() ? "  none\n" : text;
}

}  // namespace cli
