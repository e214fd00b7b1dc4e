// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/keys.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/edit_xml.h"
#include "cli/data/state_node.h"
#include "cli/screens/sflow_problems.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

/// The interfaces of the kernel, as the manager sees them, by alias, or by name where they have none.
std::vector<Choice> KernelInterfaces(Call& call)
{
    const netconf::Reply reply = call.session->Call(netconf::Get(
        StateFilter("<oam><sflow><kernel-interface><name/><alias/></kernel-interface></sflow></oam>")));
    std::vector<Choice> interfaces;
    if (!reply.ok) return interfaces;
    const Tree state = ParseReply(call.yang, reply.data);
    Children(state.get()).Of("oam").Of("sflow").ForEach("kernel-interface", [&](const lyd_node* node) {
        const Children interface(node);
        const std::string name = interface.Value("name");
        if (interface.First("alias") == nullptr)
            interfaces.push_back({name, "a kernel interface, not configured"});
        else
            interfaces.push_back({interface.Value("alias"), "alias of " + name + ", not configured"});
    });
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
    for (Choice& kernels : KernelInterfaces(call))
        if (!configured.contains(kernels.word)) choices.push_back(std::move(kernels));
    return choices;
}

}  // namespace cli
