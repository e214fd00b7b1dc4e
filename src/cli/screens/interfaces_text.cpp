// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/interfaces_text.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "base/number.h"
#include "cli/data/state_node.h"
#include "cli/screens/sflow_problems.h"
#include "cli/screens/text_table.h"

namespace cli {
namespace {

/// What the manager says of an interface of the configuration.
struct Configured {
    std::string name;
    std::string sampling;  // "1 in 1000", or why not
};

std::string SamplingText(const Children& interface)
{
    const std::string source = interface.Value("packet-source");
    if (source != "none" && source != "-") return "1 in " + interface.Value("sampling-rate");
    if (interface.First("problem")) return "no: " + interface.Value("problem");
    return interface.Value("sampling-rate") == "0" ? "no: sampling-off" : "no";
}

/// The configured interfaces, those that the manager holds and those of which it only knows a problem.
class ConfiguredInterfaces {
public:
    explicit ConfiguredInterfaces(const Children& sflow)
    {
        sflow.ForEach("interface", [&](const lyd_node* node) {
            const Children interface(node);
            const std::string name = interface.Value("name");
            m_unseen.emplace(name, SamplingText(interface));
            if (interface.First("kernel-interface"))
                m_byKernelName[interface.Value("kernel-interface")].push_back(name);
        });
        sflow.ForEach("problem", [&](const lyd_node* node) {
            const Children problem(node);
            if (problem.Value("subject") == "interface")
                m_unseen.emplace(problem.Value("name"), "no: " + problem.Value("reason"));
        });
        m_all = m_unseen;
    }

    /// Those that the kernel's interface is known by.
    std::vector<Configured> Of(const Children& link)
    {
        std::set<std::string> names{link.Value("name"), link.Value("alias")};
        link.ForEach("alternative-name", [&](const lyd_node* node) { names.insert(lyd_get_value(node)); });
        if (const auto held = m_byKernelName.find(link.Value("name")); held != m_byKernelName.end())
            names.insert(held->second.begin(), held->second.end());
        std::vector<Configured> found;
        for (const std::string& name : names) {
            const auto at = m_all.find(name);
            if (at == m_all.end()) continue;
            found.push_back({at->first, at->second});
            m_unseen.erase(name);
        }
        return found;
    }

    /// Those that no interface of the kernel was asked for.
    [[nodiscard]] const std::map<std::string, std::string>& Unseen() const { return m_unseen; }

private:
    std::map<std::string, std::string> m_all, m_unseen;
    std::map<std::string, std::vector<std::string>> m_byKernelName;
};

std::string KernelState(const Children& link)
{
    if (link.Value("admin-status") != "up") return "down";
    return link.Value("oper-status") == "up" ? "up" : "no link";
}

}  // namespace

std::string SpeedText(std::uint64_t bits)
{
    static constexpr std::array<std::pair<std::uint64_t, const char*>, 4> kUnits{
        {{1'000'000'000'000, "T"}, {1'000'000'000, "G"}, {1'000'000, "M"}, {1'000, "k"}}};
    for (const auto& [unit, text] : kUnits) {
        if (bits < unit) continue;
        std::array<char, 16> digits{};
        constexpr int kDigits = 3;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(),
                                       static_cast<double>(bits) / static_cast<double>(unit),
                                       std::chars_format::general, kDigits);
        return std::string(digits.data(), end.ptr) + text;
    }
    return std::to_string(bits);
}

std::string InterfacesTable(const lyd_node* state, std::size_t width)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    if (sflow.None()) return "No state of interfaces: the sFlow manager is not connected to the database.\n";
    ConfiguredInterfaces configured(sflow);
    std::vector<std::vector<std::string>> rows;
    sflow.ForEach("kernel-interface", [&](const lyd_node* node) {
        const Children link(node);
        const auto speed = base::ToNumber<std::uint64_t>(link.Value("speed"));
        std::vector<Configured> names = configured.Of(link);
        if (names.empty()) names.push_back({"-", "no: not configured"});
        for (const Configured& each : names)
            rows.push_back({link.Value("name"), link.Value("alias"), speed ? SpeedText(*speed) : "-",
                            KernelState(link), each.sampling, each.name, link.Value("kind"),
                            link.Value("ifindex")});
    });
    std::ranges::stable_sort(
        rows, [](const auto& one, const auto& other) { return NaturallyBefore(one[0], other[0]); });
    std::vector<std::string> missing;
    for (const auto& [name, sampling] : configured.Unseen()) missing.push_back(name);
    std::ranges::sort(missing, NaturallyBefore);
    for (const std::string& name : missing)
        rows.push_back({"-", "-", "-", "missing", configured.Unseen().at(name), name, "-", "-"});

    TextTable table({"Name",
                     {"Alias", 3},
                     {"Speed", 1},
                     "State",
                     "Sampled",
                     {"Configured as", 2},
                     {"Kind", 4},
                     {"Index", 5}});
    for (std::vector<std::string>& row : rows) table.Add(std::move(row));
    return table.Empty() ? "The kernel has no interface.\n" : table.Text(0, width);
}

}  // namespace cli
