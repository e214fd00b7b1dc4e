// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/number.h"
#include "cli/commands/groups.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/config_text.h"
#include "cli/data/data_tree.h"
#include "cli/screens/counted.h"
#include "cli/screens/history_text.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

std::string HistoryElements(const std::string& content)
{
    return "<system><history xmlns=\"urn:switch:yang:switch-history\">" + content + "</history></system>";
}

Tree RequestHistory(Call& call, const std::string& content)
{
    return RequestState(call, netconf::Get(StateFilter(HistoryElements(content))));
}

void ShowLastCommits(Call& call)
{
    const Tree tree = RequestHistory(call, "<commit/><pending-confirmation/>");
    // A number too large for its type is more than there are.
    const auto count = base::ToNumber<std::size_t>(call.arguments.text);
    if (count) KeepNewest(tree.get(), *count);
    Show(call, tree, [&](const lyd_node* state) { return HistoryText(state, call.width); });
}

/// A configuration of the answer.
Tree ConfigurationOf(const Call& call, const netconf::Reply& reply, std::string_view name)
{
    const auto found = reply.output.find(name);
    return ParseReply(call.yang, found == reply.output.end() ? std::string() : found->second);
}

/// What leads from the answer's earlier configuration to its later one.
std::string ChangesOf(const Call& call, const netconf::Reply& reply)
{
    return Differences(ConfigurationOf(call, reply, "before").get(),
                       ConfigurationOf(call, reply, "after").get());
}

/// The commit's state, and beside it the entries that it changed as they were and as they are.
std::string CommitJson(const Call& call, const lyd_node* state, const netconf::Reply& reply)
{
    auto document = nlohmann::ordered_json::parse(ToJson(state));
    for (const char* name : {"before", "after"})
        document[name] = nlohmann::ordered_json::parse(ToJson(ConfigurationOf(call, reply, name).get()));
    return document.dump(2) + "\n";
}

/// A list of the commits, or one of them with its change.
void ShowHistory(Call& call)
{
    const std::string& commit = call.arguments.text;
    if (commit.empty())
        return ShowState(call, HistoryElements("<commit/><pending-confirmation/>"),
                         [&](const lyd_node* state) { return HistoryText(state, call.width); });
    const netconf::Reply reply = RequestReply(call, netconf::CommitChanges(commit));
    const Tree tree = RequestHistory(call, "<commit><id>" + commit + "</id></commit>");
    if (call.format == Format::kJson)
        call.out << CommitJson(call, tree.get(), reply);
    else
        Show(call, tree, [&](const lyd_node* state) {
            return CommitText(state) + call.style.Differences(ChangesOf(call, reply));
        });
}

void ShowCheckpoints(Call& call) { ShowState(call, HistoryElements("<checkpoint/>"), &CheckpointsText); }

netconf::Moment MomentOf(const Call& call) { return {call.arguments.text, false}; }
netconf::Moment CommitOf(const Call& call) { return {call.arguments.text, true}; }

void RollBackTo(Call& call, const netconf::Moment& moment)
{
    const netconf::Reply reply = RequestReply(call, netconf::RollBack(moment));
    const std::size_t changes = reply.changes.value_or(0);
    call.shell.edits = changes;
    call.err << (changes == 0 ? "the candidate equals the running configuration"
                              : Counted(changes, "change") + " in the candidate; commit makes " +
                                    (changes == 1 ? "it effective" : "them effective"))
             << '\n';
}

void RollBack(Call& call) { RollBackTo(call, MomentOf(call)); }

void RollBackToCommit(Call& call) { RollBackTo(call, CommitOf(call)); }

void CompareRollback(Call& call)
{
    ShowDifferences(call, ChangesOf(call, RequestReply(call, netconf::CompareWith(MomentOf(call)))));
}

void CompareCommit(Call& call)
{
    ShowDifferences(call, ChangesOf(call, RequestReply(call, netconf::CompareWith(CommitOf(call)))));
}

void RequestCheckpoint(Call& call)
{
    Request(call, netconf::SetCheckpoint(call.arguments.text, call.arguments.hasFlag));
    call.err << "checkpoint " << call.arguments.text << " marks the last commit\n";
}

void RequestDeleteCheckpoint(Call& call)
{
    Request(call, netconf::DeleteCheckpoint(call.arguments.text));
    call.err << "checkpoint " << call.arguments.text << " is deleted\n";
}

}  // namespace

std::vector<Command> HistoryCommands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    return {
        Command{"rollback", {{Kind::kName, "N|CHECKPOINT", false, {}, Nameable::kCheckpoint}},
                "Makes the candidate the configuration of N commits ago (0: the running one, 1: as before the last commit), or of a checkpoint.",
                kSession | kMode, Forms::kNone, &RollBack},
        Command{"rollback commit", {{Kind::kNumber, "ID", false, {}, Nameable::kCommit}},
                "Makes the candidate the configuration after that commit.", kSession | kMode, Forms::kNone, &RollBackToCommit},
        Command{"compare rollback", {{Kind::kName, "N|CHECKPOINT", false, {}, Nameable::kCheckpoint}},
                "Shows what leads from the configuration of N commits ago, or of a checkpoint, to the candidate.", kBoth,
                Forms::kNone, &CompareRollback},
        Command{"compare rollback commit", {{Kind::kNumber, "ID", false, {}, Nameable::kCommit}},
                "Shows what leads from the configuration after that commit to the candidate.", kBoth, Forms::kNone,
                &CompareCommit},
        Command{"show history", {{Kind::kNumber, "ID", true, {}, Nameable::kCommit}},
                "Lists the commits, the newest first; with a number, shows that commit and what it has changed.", kBoth,
                Forms::kState, &ShowHistory},
        Command{"show history last", {{Kind::kNumber, "N"}},
                "Lists the last N commits.", kBoth, Forms::kState, &ShowLastCommits},
        Command{"show checkpoints", {},
                "Lists the checkpoints, and whether a rollback can still reach them.", kBoth, Forms::kState,
                &ShowCheckpoints},
        Command{"request checkpoint", {{Kind::kName, "NAME"}, {Kind::kFlag, "replace", true, "Moves the name from an older commit."}},
                "Marks the last commit by a name; with replace, one that an older commit may have.", kSession,
                Forms::kNone, &RequestCheckpoint},
        Command{"request delete-checkpoint", {{Kind::kName, "NAME", false, {}, Nameable::kCheckpoint}},
                "Deletes a checkpoint.", kSession, Forms::kNone, &RequestDeleteCheckpoint},
    };
    // clang-format on
}

}  // namespace cli
