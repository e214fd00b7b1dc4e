// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "base/number.h"
#include "cli/commands/groups.h"
#include "cli/commands/monitor.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/error.h"
#include "cli/screens/log_text.h"
#include "cli/screens/sessions_text.h"
#include "cli/screens/state_text.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

void ShowProcesses(Call& call)
{
    ShowState(call, "<system><role/><role-since/><role-by/><process/></system>",
              [&](const lyd_node* state) { return ProcessesText(state, call.width); });
}

void ShowFaults(Call& call)
{
    ShowState(call, "<system><fault/></system>",
              [&](const lyd_node* state) { return FaultsText(state, call.width); });
}

void ShowSessions(Call& call)
{
    const std::string filter =
        "<netconf-state "
        "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><sessions/><datastores/>"
        "</netconf-state>" +
        StateFilter("<system><candidates xmlns=\"urn:switch:yang:switch-private-candidate\"/></system>");
    Show(call, RequestState(call, netconf::Get(filter)),
         [&](const lyd_node* data) { return SessionsText(data, call.session->SessionId(), call.width); });
}

void EndSession(Call& call)
{
    const std::string& number = call.arguments.text;
    const auto id = base::ToNumber<std::uint32_t>(number);
    if (!id || *id == 0) throw Error(number + " is no session; show system sessions lists them");
    if (*id == call.session->SessionId()) throw Error("that is this shell's own session; exit ends it");
    Request(call, netconf::KillSession(*id));
    call.err << "session " << number << " is ended\n";
}

void ShowVersion(Call& call)
{
    ShowState(call, "<system><version/><process><name/><version/></process></system>", &VersionsText);
}

void ShowLog(Call& call)
{
    constexpr unsigned kUsual = 50;
    constexpr unsigned kMost = 1000;
    const std::string& number = call.arguments.text;
    const auto lines = number.empty() ? kUsual : base::ToNumber<unsigned>(number).value_or(0);
    if (lines == 0 || lines > kMost)
        throw Error("1 to " + std::to_string(kMost) + " lines can be shown, not " + number +
                    "; the file that SFLOW_LOG names has all");
    const std::string& process = call.arguments.choice;
    const netconf::Reply reply = RequestReply(call, netconf::GetLog(lines, process));
    Show(call, ParseOutput(call.yang, reply, "get-log"),
         [&](const lyd_node* output) { return LogText(output, process); });
}

void ShowEvents(Call& call) { MonitorEvents(call); }

void RequestHa(Call& call)
{
    const bool active = call.arguments.choice == "go-active";
    Request(call, netconf::HaTransition(active ? "active" : "standby"));
    call.err << "the processes " << (active ? "are active\n" : "stand by\n");
}

void RequestBackup(Call& call)
{
    Request(call, netconf::Backup(call.arguments.text));
    call.err << "the database is copied to " << call.arguments.text << '\n';
}

}  // namespace

std::vector<Command> SystemCommands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    return {
        Command{"show system processes", {},
                "Shows the processes that are connected to the database, and those that miss commits.", kBoth, Forms::kState, &ShowProcesses},
        Command{"show system faults", {},
                "Shows the faults that processes reported.", kBoth, Forms::kState, &ShowFaults},
        Command{"show system sessions", {},
                "Shows who has a session, from where and since when, with its locks and the edits that it has not committed.", kBoth, Forms::kState, &ShowSessions},
        Command{"request session", {{Kind::kNumber, "N", false, {}, Nameable::kSession}, {Kind::kFlag, "end", false, "Ends it."}},
                "Ends another session: what it has locked becomes free, and what it has edited under its lock is dropped.", kSession, Forms::kNone, &EndSession},
        Command{"show version", {},
                "Shows the versions of this shell, of the database and of the processes that are connected to it.", kBoth, Forms::kState, &ShowVersion},
        Command{"show log", {{Kind::kNumber, "N", true}, {Kind::kChoice, "cdbd|sflow-mgr|sflow-app", true,
                  "The database and its management agent.|The sFlow manager.|The sFlow configuration daemon."}},
                "Shows the last lines of the logs of the switch's processes, or of one of them; 50 without a number.", kBoth, Forms::kState, &ShowLog},
        Command{"monitor events", {{Kind::kText, "since TIME", true, "With what has happened since then."}},
                "Shows what happens, one event a line, until Ctrl-C; from a time on, such as 10m, 2h or 2026-11-21T03:20:11Z.", kYang | kStreams, Forms::kState, &ShowEvents},
        Command{"request ha", {{Kind::kChoice, "go-active|go-standby", false, "This node does the work.|This node waits."}},
                "Tells every process to become active or to stand by.", kSession, Forms::kNone, &RequestHa},
        Command{"request backup", {{Kind::kFile, "FILE"}},
                "Copies the database into a new file on the switch, given by its absolute path.", kSession,
                Forms::kNone, &RequestBackup},
    };
    // clang-format on
}

}  // namespace cli
