// SPDX-License-Identifier: Apache-2.0
// The rows of the table, and what they do: each handler is one command.

#include <array>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "base/number.h"
#include "cli/candidates_text.h"
#include "cli/command.h"
#include "cli/config_text.h"
#include "cli/confirm.h"
#include "cli/data.h"
#include "cli/error.h"
#include "cli/history_text.h"
#include "cli/monitor.h"
#include "cli/request.h"
#include "cli/schema_words.h"
#include "cli/sflow_problems.h"
#include "cli/sflow_summary.h"
#include "cli/sflow_text.h"
#include "cli/state_text.h"
#include "netconf/client.h"
#include "netconf/requests.h"
#include "netconf/xml.h"

namespace cli {
namespace {

/// Prints the data, which may be null: as text, or itself in the form that was asked for.
template <typename TextOf>
void Show(const Call& call, const Tree& tree, const TextOf& text)
{
    switch (call.format) {
    case Format::kText:
        call.out << text(tree.get());
        break;
    case Format::kJson:
        call.out << ToJson(tree.get());
        break;
    case Format::kXml:
        call.out << ToXml(tree.get());
        break;
    case Format::kSet:
        call.out << ToSetLines(tree.get());
        break;
    }
}

/// Edits the candidate, all or nothing. Only validate and commit check the whole: until then it may lack what
/// a later command adds.
void Edit(Call& call, const std::string& config)
{
    Request(call, netconf::EditConfig(config, {"merge", "set", "rollback-on-error"}));
}

void Set(Call& call) { Edit(call, SetXml(PlaceToSet(call.yang, call.arguments.words))); }

void Delete(Call& call) { Edit(call, DeleteXml(PlaceToDelete(call.yang, call.arguments.words))); }

void LoadMerge(Call& call)
{
    const Tree tree = ReadConfigFile(call.yang, call.arguments.text);
    Edit(call, tree ? ToCompactXml(tree.get()) : "");
}

void LoadReplace(Call& call)
{
    const Tree tree = ReadConfigFile(call.yang, call.arguments.text);
    Edit(call, ReplaceXml(call.yang, tree.get()));
}

void ShowConfiguration(Call& call)
{
    const Place place = PlaceToShow(call.yang, call.arguments.words);
    const bool all = place.steps.empty();
    const std::string filter = FilterXml(place);
    const Tree tree =
        RequestData(call, all ? netconf::GetConfig("candidate") : netconf::GetConfig("candidate", filter));
    Show(call, tree,
         [&](const lyd_node* data) { return all ? ToBlocks(data) : ToBlocks(NodesAt(data, place)); });
}

void Compare(Call& call)
{
    const Tree running = RequestData(call, netconf::GetTouched("running"));
    const Tree candidate = RequestData(call, netconf::GetTouched("candidate"));
    call.out << Differences(running.get(), candidate.get());
}

/// What leads from the answer's earlier configuration to its later one.
std::string ChangesOf(const Call& call, const netconf::Reply& reply)
{
    const auto tree = [&](std::string_view name) {
        const auto found = reply.output.find(name);
        return ParseReply(call.yang, found == reply.output.end() ? std::string() : found->second);
    };
    return Differences(tree("before").get(), tree("after").get());
}

/// `content`: of the state's top-level container, as a filter.
std::string StateFilter(const std::string& content)
{
    return "<state xmlns=\"urn:switch:yang:switch-state\">" + content + "</state>";
}

/// The same, shown.
template <typename TextOf>
void ShowState(Call& call, const std::string& content, const TextOf& text)
{
    Show(call, RequestState(call, netconf::Get(StateFilter(content))), text);
}

void Validate(Call& call) { Request(call, netconf::Validate()); }

void Commit(Call& call)
{
    const netconf::Reply reply = RequestReply(call, netconf::Commit(call.arguments.Named("comment")));
    call.waits = false;
    if (!call.talks) return;
    call.out << (reply.commit ? "commit " + std::to_string(*reply.commit) : "nothing to commit") << '\n';
}

void Discard(Call& call) { Request(call, netconf::DiscardChanges()); }

std::string SflowFilter(const std::string& content) { return "<oam><sflow>" + content + "</sflow></oam>"; }

void ShowSummary(Call& call)
{
    const auto request = [&](std::string_view content) {
        return RequestState(call, netconf::Get(StateFilter(std::string(content))));
    };
    const Tree sflow = request(kSummaryOfSflow);
    const Tree processes = request(kSummaryOfProcesses);
    call.out << SflowSummary(sflow.get(), processes.get(), call.width);
}

/// Everything for programs, the summary for people.
void ShowSflow(Call& call)
{
    const std::string& part = call.arguments.choice;
    if (part.empty() && call.format == Format::kText) return ShowSummary(call);
    const bool asks = part == "problems";
    if (asks) call.status = kNotKnown;  // until there is an answer
    const Tree state = RequestState(call, netconf::Get(StateFilter(SflowFilter(SflowElements(part)))));
    Show(call, state, [&](const lyd_node* data) { return SflowText(data, part, call.width); });
    if (asks) call.status = ProblemsStatus(state.get());
}

/// The entries of that names, or all; of an entry that is not there no more is said than that.
void ShowEntries(Call& call, const std::string& list)
{
    std::string filter;
    for (const std::string& name : call.arguments.words) {
        const std::string escaped = netconf::Escaped(name);
        filter += "<" + list + "><name>" + escaped + "</name></" + list + "><problem><subject>" + list +
                  "</subject><name>" + escaped + "</name></problem>";
    }
    if (filter.empty()) filter = "<" + list + "/>" + (call.arguments.hasFlag ? "<problem/>" : "");
    const Tree state = RequestState(call, netconf::Get(StateFilter(SflowFilter(filter))));
    for (const std::string& name : call.arguments.words)
        if (!HasEntry(state.get(), list, name))
            throw Error("there is no " + list + " " + name + " in the state; show sflow " + list +
                        " lists those that there are");
    Show(call, state, [&](const lyd_node* data) {
        return call.arguments.hasFlag ? SflowDetail(data, list, call.width)
                                      : SflowText(data, list + "s", call.width);
    });
}

void ShowSflowInterface(Call& call) { ShowEntries(call, "interface"); }

void ShowSflowCollector(Call& call) { ShowEntries(call, "collector"); }

void ShowProcesses(Call& call)
{
    ShowState(call, "<system><process/></system>",
              [&](const lyd_node* state) { return ProcessesText(state, call.width); });
}

void ShowFaults(Call& call)
{
    ShowState(call, "<system><fault/></system>",
              [&](const lyd_node* state) { return FaultsText(state, call.width); });
}

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
    Show(call, tree, &HistoryText);
}

/// A list of the commits, or one of them with its change.
void ShowHistory(Call& call)
{
    const std::string& commit = call.arguments.text;
    if (commit.empty())
        return ShowState(call, HistoryElements("<commit/><pending-confirmation/>"), &HistoryText);
    const netconf::Reply reply = RequestReply(call, netconf::CommitChanges(commit));
    ShowState(call, HistoryElements("<commit><id>" + commit + "</id></commit>"),
              [&](const lyd_node* state) { return CommitText(state) + ChangesOf(call, reply); });
}

void ShowCheckpoints(Call& call) { ShowState(call, HistoryElements("<checkpoint/>"), &CheckpointsText); }

netconf::Moment MomentOf(const Call& call) { return {call.arguments.text, false}; }
netconf::Moment CommitOf(const Call& call) { return {call.arguments.text, true}; }

void RollBack(Call& call) { Request(call, netconf::RollBack(MomentOf(call))); }

void RollBackToCommit(Call& call) { Request(call, netconf::RollBack(CommitOf(call))); }

void CompareRollback(Call& call)
{
    call.out << ChangesOf(call, RequestReply(call, netconf::CompareWith(MomentOf(call))));
}

void CompareCommit(Call& call)
{
    call.out << ChangesOf(call, RequestReply(call, netconf::CompareWith(CommitOf(call))));
}

void RequestCheckpoint(Call& call)
{
    Request(call, netconf::SetCheckpoint(call.arguments.text, call.arguments.hasFlag));
}

void RequestDeleteCheckpoint(Call& call) { Request(call, netconf::DeleteCheckpoint(call.arguments.text)); }

void ShowVersion(Call& call)
{
    ShowState(call, "<system><version/><process><name/><version/></process></system>", &VersionsText);
}

void ShowEvents(Call& call) { MonitorEvents(call); }

void RequestHa(Call& call)
{
    Request(call, netconf::HaTransition(call.arguments.choice == "go-active" ? "active" : "standby"));
}

void RequestResync(Call& call) { Request(call, netconf::SflowResync()); }

void RequestBackup(Call& call) { Request(call, netconf::Backup(call.arguments.text)); }

void ShowHelp(Call& call) { call.out << Help(Commands(), call.arguments.words); }

void ConfigurePrivate(Call& call)
{
    Request(call, netconf::OpenPrivateCandidate());
    call.isPrivate = true;
}

void ConfigureShared(Call& call)
{
    if (!call.isPrivate) return;
    call.isPrivate = false;
    Request(call, netconf::ClosePrivateCandidate());
}

void Update(Call& call) { Request(call, netconf::UpdateCandidate(call.arguments.hasFlag)); }

void ShowCandidates(Call& call)
{
    ShowState(call, "<system><candidates xmlns=\"urn:switch:yang:switch-private-candidate\"/></system>",
              &CandidatesText);
}

/// Of a shell with a private candidate there is a session then.
void Exit(Call& call)
{
    if (call.isPrivate) return ConfigureShared(call);
    call.leave = true;
}

}  // namespace

std::span<const Command> Commands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    static const std::array kCommands = {
        Command{"set", {{Kind::kPath, "PATH... [VALUE]"}},
                "Gives a leaf the value behind its path, or creates a list's entry.", kBoth, Forms::kNone, &Set},
        Command{"delete", {{Kind::kPath, "PATH..."}},
                "Deletes a leaf, a list's entry, or all that is below a path.", kBoth, Forms::kNone, &Delete},
        Command{"load merge", {{Kind::kFile, "FILE"}},
                "Adds a file's configuration (JSON or XML) to the candidate.", kBoth, Forms::kNone, &LoadMerge},
        Command{"load replace", {{Kind::kFile, "FILE"}},
                "Replaces the candidate's configuration by a file's (JSON or XML).", kBoth, Forms::kNone,
                &LoadReplace},
        Command{"show configuration", {{Kind::kPath, "PATH...", true}},
                "Shows the candidate: the running configuration with what was edited since.", kBoth,
                Forms::kConfiguration, &ShowConfiguration},
        Command{"compare", {},
                "Shows what a commit would change: + what comes, - what goes.", kBoth, Forms::kNone, &Compare},
        Command{"compare rollback", {{Kind::kName, "N|CHECKPOINT"}},
                "Shows what leads from the configuration of N commits ago, or of a checkpoint, to the candidate.", kBoth,
                Forms::kNone, &CompareRollback},
        Command{"compare rollback commit", {{Kind::kNumber, "ID"}},
                "Shows what leads from the configuration after that commit to the candidate.", kBoth, Forms::kNone,
                &CompareCommit},
        Command{"validate", {}, "Checks the candidate as a commit would.", kSession, Forms::kNone, &Validate},
        Command{"commit", {{Kind::kText, "comment TEXT", true}},
                "Makes the candidate the running configuration, which takes effect at once.", kSession,
                Forms::kNone, &Commit},
        Command{"commit confirmed", {{Kind::kNumber, "SECONDS", true}, {Kind::kText, "persist ID", true}, {Kind::kText, "comment TEXT", true}},
                "Commits, and rolls back unless confirm comes within that time (600 seconds without a number); again, it prolongs the time.",
                kBoth, Forms::kNone, &CommitConfirmed},
        Command{"confirm", {{Kind::kName, "ID", true}},
                "Confirms the commit that waits for it, and leaves the candidate alone.", kBoth, Forms::kNone, &Confirm},
        Command{"cancel", {{Kind::kName, "ID", true}},
                "Rolls the commit that waits for its confirmation back at once.", kBoth, Forms::kNone, &Cancel},
        Command{"discard", {},
                "Takes back everything that was edited since the last commit.", kSession, Forms::kNone, &Discard},
        Command{"configure private", {},
                "Gives this session a candidate of its own, equal to the running configuration, for all commands from here on.",
                kSession, Forms::kNone, &ConfigurePrivate},
        Command{"configure shared", {},
                "Drops this session's private candidate, and uses the shared one again.", kSession, Forms::kNone,
                &ConfigureShared},
        Command{"update", {{Kind::kFlag, "running", true}},
                "Takes what others have committed into the candidate; with running, also in the place of what was edited here.",
                kSession, Forms::kNone, &Update},
        Command{"rollback", {{Kind::kName, "N|CHECKPOINT"}},
                "Makes the candidate the configuration of N commits ago (0: the running one, 1: as before the last commit), or of a checkpoint.",
                kSession, Forms::kNone, &RollBack},
        Command{"rollback commit", {{Kind::kNumber, "ID"}},
                "Makes the candidate the configuration after that commit.", kSession, Forms::kNone, &RollBackToCommit},
        Command{"show history", {{Kind::kNumber, "ID", true}},
                "Lists the commits, the newest first; with a number, shows that commit and what it has changed.", kBoth,
                Forms::kState, &ShowHistory},
        Command{"show history last", {{Kind::kNumber, "N"}},
                "Lists the last N commits.", kBoth, Forms::kState, &ShowLastCommits},
        Command{"show checkpoints", {},
                "Lists the checkpoints, and whether a rollback can still reach them.", kBoth, Forms::kState,
                &ShowCheckpoints},
        Command{"show sflow", {{Kind::kChoice, "collectors|interfaces|agent|drops|problems", true}},
                "Shows on one screen whether sampling works; or a part of what is in effect, what was dropped, or why nothing flows.", kBoth, Forms::kState, &ShowSflow},
        Command{"show sflow interface", {{Kind::kPath, "NAME...", true}, {Kind::kFlag, "detail", true}},
                "Shows the interfaces of these names, or all; with detail, all that is known of each.", kBoth, Forms::kState, &ShowSflowInterface},
        Command{"show sflow collector", {{Kind::kPath, "NAME...", true}, {Kind::kFlag, "detail", true}},
                "Shows the collectors of these names, or all; with detail, all that is known of each.", kBoth, Forms::kState, &ShowSflowCollector},
        Command{"show system processes", {},
                "Shows the processes that are connected to the database, and those that miss commits.", kBoth, Forms::kState, &ShowProcesses},
        Command{"show system faults", {},
                "Shows the faults that processes reported.", kBoth, Forms::kState, &ShowFaults},
        Command{"show system candidates", {},
                "Shows who has edited the shared candidate, and who has a private one.", kBoth, Forms::kState, &ShowCandidates},
        Command{"show version", {},
                "Shows the versions of this shell, of the database and of the processes that are connected to it.", kBoth, Forms::kState, &ShowVersion},
        Command{"monitor events", {{Kind::kText, "since TIME", true}},
                "Shows what happens, one event a line, until Ctrl-C; from a time on, such as 10m, 2h or 2026-11-21T03:20:11Z.", kYang, Forms::kState, &ShowEvents},
        Command{"request ha", {{Kind::kChoice, "go-active|go-standby"}},
                "Tells every process to become active or to stand by.", kSession, Forms::kNone, &RequestHa},
        Command{"request sflow resync", {},
                "Has everything sent to the sFlow manager again; what is unchanged stays undisturbed.", kSession,
                Forms::kNone, &RequestResync},
        Command{"request backup", {{Kind::kFile, "FILE"}},
                "Copies the database into a new file on the switch, given by its absolute path.", kSession,
                Forms::kNone, &RequestBackup},
        Command{"request checkpoint", {{Kind::kName, "NAME"}, {Kind::kFlag, "replace", true}},
                "Marks the last commit by a name; with replace, one that an older commit may have.", kSession,
                Forms::kNone, &RequestCheckpoint},
        Command{"request delete-checkpoint", {{Kind::kName, "NAME"}},
                "Deletes a checkpoint.", kSession, Forms::kNone, &RequestDeleteCheckpoint},
        Command{"help", {{Kind::kCommand, "COMMAND...", true}},
                "Lists the commands that begin with these words.", kNothing, Forms::kNone, &ShowHelp},
        Command{"exit", {}, "Drops a private candidate as configure shared does, else ends the shell.", kNothing, Forms::kNone, &Exit},
    };
    // clang-format on
    return kCommands;
}

}  // namespace cli
