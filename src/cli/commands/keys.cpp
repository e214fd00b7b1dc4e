// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/keys.h"

#include <libyang/libyang.h>
#include <net/if.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "cli/commands/request.h"
#include "cli/data/edit_xml.h"
#include "cli/screens/sflow_problems.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

/// The alias of the kernel's interface; empty if it has none, or if sysfs is another network namespace's.
std::string AliasOf(const std::string& name, unsigned index)
{
    const std::filesystem::path folder = std::filesystem::path("/sys/class/net") / name;
    std::string indexText;
    std::string alias;
    std::getline(std::ifstream(folder / "ifindex"), indexText);
    if (indexText == std::to_string(index)) std::getline(std::ifstream(folder / "ifalias"), alias);
    return alias;
}

/// The interfaces of the kernel by alias, or by name where they have none.
std::vector<Choice> KernelInterfaces()
{
    std::vector<Choice> interfaces;
    const std::unique_ptr<struct if_nameindex, decltype(&::if_freenameindex)> all(::if_nameindex(),
                                                                                  &::if_freenameindex);
    for (const struct if_nameindex* each = all.get(); each && each->if_name; ++each) {
        const std::string name = each->if_name;
        const std::string alias = AliasOf(name, each->if_index);
        if (alias.empty())
            interfaces.push_back({name, "a kernel interface, not configured"});
        else
            interfaces.push_back({alias, "alias of " + name + ", not configured"});
    }
    std::ranges::sort(interfaces,
                      [](const Choice& a, const Choice& b) { return NaturallyBefore(a.word, b.word); });
    return interfaces;
}

bool AreSflowInterfaces(const lysc_node* list)
{
    return std::string_view(list->name) == "interface" && list->parent &&
           std::string_view(list->parent->name) == "sflow";
}

}  // namespace

std::vector<Choice> RequestKeys(Call& call, const Place& list)
{
    const netconf::Reply reply = call.session->Call(netconf::GetConfig("candidate", KeysFilterXml(list)));
    std::vector<Choice> choices;
    if (!reply.ok) return choices;
    const Tree tree = ParseReply(call.yang, reply.data);
    for (const lyd_node* entry : NodesAt(tree.get(), list))
        choices.push_back({lyd_get_value(lyd_child(entry)), {}});
    std::ranges::sort(choices,
                      [](const Choice& a, const Choice& b) { return NaturallyBefore(a.word, b.word); });
    if (!AreSflowInterfaces(list.steps.back().schema)) return choices;
    std::set<std::string> configured;
    for (const Choice& choice : choices) configured.insert(choice.word);
    for (Choice& kernels : KernelInterfaces())
        if (!configured.contains(kernels.word)) choices.push_back(std::move(kernels));
    return choices;
}

}  // namespace cli
