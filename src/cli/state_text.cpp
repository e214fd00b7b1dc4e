#include "cli/state_text.h"

#include <libyang/libyang.h>

#include <cstddef>
#include <vector>

#include "cli/text_table.h"

namespace cli {
namespace {

constexpr std::size_t kIndent = 2;

/// Children of one parent by name; the state's names are unique among siblings.
class Children {
public:
    explicit Children(const lyd_node* parent) : m_parent(parent) {}

    [[nodiscard]] const lyd_node* First(std::string_view name) const
    {
        for (const lyd_node* child = Begin(); child; child = child->next)
            if (name == LYD_NAME(child)) return child;
        return nullptr;
    }

    [[nodiscard]] Children Of(std::string_view name) const { return Children(First(name)); }
    [[nodiscard]] bool None() const { return !Begin(); }

    /// The leaf's value; "-" without one.
    [[nodiscard]] std::string Value(std::string_view name) const
    {
        const lyd_node* leaf = First(name);
        return leaf ? lyd_get_value(leaf) : "-";
    }

    /// A time without the fraction of its second, "Z" for UTC.
    [[nodiscard]] std::string Time(std::string_view name) const
    {
        std::string time = Value(name);
        const std::size_t point = time.find('.');
        if (point != std::string::npos) time.erase(point, time.find_first_of("Z+-", point) - point);
        constexpr std::string_view kUtc = "+00:00";
        if (time.ends_with(kUtc)) time.replace(time.size() - kUtc.size(), kUtc.size(), "Z");
        return time;
    }

    /// The values of a leaf-list, with blanks between; "-" for none.
    [[nodiscard]] std::string Values(std::string_view name) const
    {
        std::string text;
        ForEach(name, [&](const lyd_node* node) {
            text += (text.empty() ? "" : " ") + std::string(lyd_get_value(node));
        });
        return text.empty() ? "-" : text;
    }

    template <typename Visit>
    void ForEach(std::string_view name, Visit visit) const
    {
        for (const lyd_node* child = Begin(); child; child = child->next)
            if (name == LYD_NAME(child)) visit(child);
    }

private:
    [[nodiscard]] const lyd_node* Begin() const { return m_parent ? lyd_child(m_parent) : nullptr; }

    const lyd_node* m_parent;
};

std::string Section(std::string_view title, const TextTable& table)
{
    return std::string(title) + "\n" + (table.Empty() ? "  none\n" : table.Text(kIndent));
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
    return Section("Manager", table);
}

std::string AgentText(const Children& sflow)
{
    TextTable table({});
    table.Add({"Address", sflow.Value("agent-address")});
    return Section("Agent", table);
}

std::string CollectorsText(const Children& sflow)
{
    TextTable table({"Name", "Address", "Port", "Datagram size"});
    sflow.ForEach("collector", [&](const lyd_node* node) {
        const Children collector(node);
        table.Add({collector.Value("name"), collector.Value("address"), collector.Value("port"),
                   collector.Value("datagram-size")});
    });
    return Section("Collectors", table);
}

std::string InterfacesText(const Children& sflow)
{
    TextTable table(
        {"Name", "Sampling", "Header", "Polling", "Direction", "Packet samples to", "Counters to"});
    sflow.ForEach("interface", [&](const lyd_node* node) {
        const Children interface(node);
        const std::string polling = interface.Value("polling-interval");
        table.Add({interface.Value("name"), "1 in " + interface.Value("sampling-rate"),
                   interface.Value("max-header-size"), polling == "0" ? "off" : polling + " s",
                   interface.Value("direction"), interface.Values("flow-collector"),
                   interface.Values("counter-collector")});
    });
    return Section("Interfaces", table);
}

}  // namespace

std::string SflowText(const lyd_node* state, std::string_view part)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    const bool all = part.empty();
    if (all && sflow.None()) return "No sFlow state: the sFlow manager is not connected to the database.\n";
    std::string text;
    const auto add = [&](const std::string& section) { text += (text.empty() ? "" : "\n") + section; };
    if (all) add(ManagerText(sflow.Of("manager")));
    if (all || part == "agent") add(AgentText(sflow));
    if (all || part == "collectors") add(CollectorsText(sflow));
    if (all || part == "interfaces") add(InterfacesText(sflow));
    return text;
}

std::string ProcessesText(const lyd_node* state)
{
    TextTable table({"Name", "Process", "State", "Role", "Connected since", "Callpoints", "Subscriptions"});
    Children(state).Of("system").ForEach("process", [&](const lyd_node* node) {
        const Children process(node);
        table.Add({process.Value("name"), process.Value("pid"), process.Value("state"), process.Value("role"),
                   process.Time("connected-since"), process.Values("callpoint"),
                   process.Values("subscription")});
    });
    return table.Empty() ? "No process is connected to the database.\n" : table.Text(0);
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
