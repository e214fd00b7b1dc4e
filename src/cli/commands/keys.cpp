// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/keys.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <utility>

#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/edit_xml.h"
#include "cli/data/schema_words.h"
#include "cli/data/state_node.h"
#include "cli/screens/sflow_problems.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

constexpr std::chrono::seconds kPatience{2};

/// The answer's data; null without an answer.
Tree Ask(Call& call, const std::string& operation)
{
    const auto reply = call.session->CallWithin(operation, kPatience);
    return reply && reply->ok ? ParseReply(call.yang, reply->data) : Tree();
}

/// The interfaces of the kernel, as the manager sees them, by alias, or by name where they have none.
std::vector<Choice> KernelInterfaces(Call& call)
{
    const Tree state =
        Ask(call, netconf::Get(StateFilter(
                      "<oam><sflow><kernel-interface><name/><alias/></kernel-interface></sflow></oam>")));
    std::vector<Choice> interfaces;
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

std::vector<Choice> EntriesOf(Call& call, const char* list)
{
    return RequestKeys(call, PlacesToShow(call.yang, std::vector<std::string>{"oam", "sflow", list}).front());
}

Tree AskHistory(Call& call, const std::string& content)
{
    return Ask(call, netconf::Get(StateFilter("<system><history xmlns=\"urn:switch:yang:switch-history\">" +
                                              content + "</history></system>")));
}

std::vector<Choice> Checkpoints(Call& call)
{
    const Tree state = AskHistory(call, "<checkpoint/>");
    std::vector<Choice> checkpoints;
    Children(state.get()).Of("system").Of("history").ForEach("checkpoint", [&](const lyd_node* node) {
        const Children checkpoint(node);
        checkpoints.push_back({checkpoint.Value("name"), "commit " + checkpoint.Value("commit")});
    });
    return checkpoints;
}

std::vector<Choice> Commits(Call& call)
{
    const Tree state = AskHistory(call, "<commit><id/><time/><user/><comment/></commit>");
    std::vector<Choice> commits;
    Children(state.get()).Of("system").Of("history").ForEach("commit", [&](const lyd_node* node) {
        const Children commit(node);
        const std::string comment = commit.First("comment") ? ": " + commit.Value("comment") : "";
        commits.push_back(
            {commit.Value("id"), commit.Time("time") + " by " + commit.Value("user") + comment});
    });
    std::ranges::reverse(commits);
    return commits;
}

std::vector<Choice> OtherSessions(Call& call)
{
    const Tree state = Ask(
        call, netconf::Get(
                  "<netconf-state xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><sessions/>"
                  "</netconf-state>"));
    const std::string own = std::to_string(call.session->SessionId());
    std::vector<Choice> sessions;
    Children(state.get()).Of("sessions").ForEach("session", [&](const lyd_node* node) {
        const Children session(node);
        const std::string id = session.Value("session-id");
        if (id != own)
            sessions.push_back({id, session.Value("username") + ", since " + session.Time("login-time")});
    });
    return sessions;
}

}  // namespace

std::vector<Choice> RequestKeys(Call& call, const Place& list)
{
    const Tree tree = Ask(call, netconf::GetConfig("candidate", KeysFilterXml(list)));
    std::vector<Choice> choices;
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

std::vector<Choice> RequestNames(Call& call, Nameable names)
{
    switch (names) {
    case Nameable::kInterface:
        return EntriesOf(call, "interface");
    case Nameable::kCollector:
        return EntriesOf(call, "collector");
    case Nameable::kCheckpoint:
        return Checkpoints(call);
    case Nameable::kCommit:
        return Commits(call);
    case Nameable::kSession:
        return OtherSessions(call);
    case Nameable::kNothing:
        break;
    }
    return {};
}

}  // namespace cli
