// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands/groups.h"
#include "cli/commands/monitor_sflow.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"
#include "cli/data/ranges.h"
#include "cli/data/state_node.h"
#include "cli/screens/fact_list.h"
#include "cli/screens/sflow_problems.h"
#include "cli/screens/sflow_summary.h"
#include "cli/screens/sflow_text.h"
#include "cli/screens/state_text.h"
#include "cli/screens/text_width.h"
#include "cli/screens/wrapped_text.h"
#include "netconf/client.h"
#include "netconf/requests.h"
#include "netconf/xml.h"

namespace cli {
namespace {

std::string SflowFilter(const std::string& content) { return "<oam><sflow>" + content + "</sflow></oam>"; }

void ShowSummary(Call& call)
{
    const auto request = [&](std::string_view content) {
        return RequestState(call, netconf::Get(StateFilter(std::string(content))));
    };
    const Tree sflow = request(kSummaryOfSflow);
    const Tree processes = request(kSummaryOfProcesses);
    call.out << call.style.Causes(SflowSummary(sflow.get(), processes.get(), call.width));
}

/// What is known where the sFlow manager tells nothing: that first, then the processes.
void ShowUnknown(Call& call, const MissingState& why)
{
    call.out << Wrapped(why.what(), 0, call.width)
             << "\n\nWhether something is broken can't be told. The processes:\n\n";
    ShowState(call, "<system><process/></system>",
              [&](const lyd_node* state) { return ProcessesText(state, call.width); });
}

/// Where the state has no problem: whether that is because nothing is configured.
bool HasInterface(Call& call)
{
    const Tree state =
        RequestState(call, netconf::Get(StateFilter(SflowFilter("<interface><name/></interface>"))));
    return Children(state.get()).Of("oam").Of("sflow").First("interface") != nullptr;
}

void ShowProblems(Call& call)
{
    call.shell.status = kNotKnown;  // until there is an answer
    try {
        const Tree state =
            RequestState(call, netconf::Get(StateFilter(SflowFilter(SflowElements("problems")))));
        const Children sflow = Children(state.get()).Of("oam").Of("sflow");
        const bool isFine = !sflow.None() && sflow.First("problem") == nullptr;
        if (isFine && call.format == Format::kText && !HasInterface(call))
            call.out << Wrapped("Nothing is sampled: " + std::string(kNoInterface), 0, call.width) << "\n";
        else
            Show(call, state, [&](const lyd_node* data) {
                return call.style.Causes(SflowText(data, "problems", call.width));
            });
        call.shell.status = ProblemsStatus(state.get());
    } catch (const MissingState& why) {
        if (call.format != Format::kText) throw;
        ShowUnknown(call, why);
    }
}

/// Everything for programs, the summary for people.
void ShowSflow(Call& call)
{
    const std::string& part = call.arguments.choice;
    if (part.empty() && call.format == Format::kText) return ShowSummary(call);
    if (part == "problems") return ShowProblems(call);
    const Tree state = RequestState(call, netconf::Get(StateFilter(SflowFilter(SflowElements(part)))));
    Show(call, state, [&](const lyd_node* data) { return SflowText(data, part, call.width); });
}

std::string EntryFilter(const std::string& list, const std::string& name)
{
    const std::string escaped = netconf::Escaped(name);
    return "<" + list + "><name>" + escaped + "</name></" + list + "><problem><subject>" + list +
           "</subject><name>" + escaped + "</name></problem>";
}

/// Refuses a word of which there is no entry. Of a range, says how many are missing and the first of them.
void ExpectEntries(Call& call, const lyd_node* state, const std::string& list, const std::string& word)
{
    const std::set<std::string> there = EntryNames(state, list);
    std::vector<std::string> names = NamesOf(word);
    const std::size_t all = names.size();
    std::erase_if(names, [&](const std::string& name) { return there.contains(name); });
    if (names.empty()) return;
    const std::string remedy = "; show sflow " + list + " lists those that there are";
    if (names.size() == all) {
        const std::string why = ProblemOf(state, list, names.front());
        throw Error("there is no " + list + " " + word + " in the state" +
                    (why.empty() ? remedy : ": " + why));
    }
    call.err << "warning: " << names.size() << " of the " << all << " of " << word
             << " are not in the state, the first of them " << names.front() << remedy << "\n";
}

/// The entries of that names, or all; of an entry that is not there no more is said than that.
void ShowEntries(Call& call, const std::string& list)
{
    std::string filter;
    for (const std::string& word : call.arguments.words)
        for (const std::string& name : NamesOf(word)) filter += EntryFilter(list, name);
    if (filter.empty()) filter = "<" + list + "/>" + (call.arguments.hasFlag ? "<problem/>" : "");
    const Tree state = RequestState(call, netconf::Get(StateFilter(SflowFilter(filter))));
    for (const std::string& word : call.arguments.words) ExpectEntries(call, state.get(), list, word);
    Show(call, state, [&](const lyd_node* data) {
        return call.arguments.hasFlag ? call.style.Causes(SflowDetail(data, list, call.width))
                                      : SflowText(data, list + "s", call.width);
    });
}

void ShowSflowInterface(Call& call) { ShowEntries(call, "interface"); }

void ShowSflowCollector(Call& call) { ShowEntries(call, "collector"); }

void RequestResync(Call& call)
{
    Request(call, netconf::SflowResync());
    call.err << "the sFlow manager is told the whole configuration again\n";
}

void ClearStatistics(Call& call)
{
    Request(call, netconf::SflowClearStatistics());
    call.err << "the counts of collectors, interfaces and drops begin at zero" << std::endl;
}

/// The answer is the exit status, too: 1 where something was reported.
void TestCollector(Call& call)
{
    const netconf::Reply reply = RequestReply(call, netconf::SflowTestCollector(call.arguments.text));
    const Tree answer = ParseOutput(call.yang, reply, "sflow-test-collector");
    const Children output(answer.get());
    if (call.format != Format::kText) {
        call.out << (call.format == Format::kJson ? ToJson(answer.get()) : ToXml(answer.get()));
    } else {
        FactList facts;
        facts.Add("Collector", call.arguments.text);
        facts.Add("Outcome", output.Value("outcome") + ": " + output.Value("text"));
        facts.Add("Datagram",
                  "sub-agent " + output.Value("sub-agent") + ", sequence " + output.Value("sequence"));
        std::string command = output.Value("command");
        const std::size_t filter = command.find(" -Y ");
        if (Width(command) > call.width && filter != std::string::npos) command.insert(filter, " \\\n   ");
        call.out << facts.Text(0, call.width) << "On the collector's machine this shows it:\n"
                 << command << "\n";
    }
    call.shell.status = output.Value("outcome") == "silent" ? 0 : 1;
}

}  // namespace

std::vector<Command> SflowCommands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    return {
        Command{"show sflow", {{Kind::kChoice, "collectors|interfaces|agent|drops|problems", true,
                 "Where datagrams are sent, and how many.|What is sampled, and how much.|The agent and the sFlow manager.|Packets that the kernel has dropped.|What is broken, off or idle, and what to do."}},
                "Shows on one screen whether sampling works; or a part of what is in effect, what was dropped, or why nothing flows.", kBoth, Forms::kState, &ShowSflow},
        Command{"show sflow interface", {{Kind::kPath, "NAME...", true, {}, Nameable::kInterface}, {Kind::kFlag, "detail", true, "All that is known of each."}},
                "Shows the interfaces of these names or ranges, or all; with detail, all that is known of each.", kBoth, Forms::kState, &ShowSflowInterface},
        Command{"show sflow collector", {{Kind::kPath, "NAME...", true, {}, Nameable::kCollector}, {Kind::kFlag, "detail", true, "All that is known of each."}},
                "Shows the collectors of these names, or all; with detail, all that is known of each.", kBoth, Forms::kState, &ShowSflowCollector},
        Command{"request sflow resync", {},
                "Has everything sent to the sFlow manager again; what is unchanged stays undisturbed.", kSession,
                Forms::kNone, &RequestResync},
        Command{"monitor sflow", {{Kind::kText, "interface NAME", true, "Of one interface.", Nameable::kInterface}, {Kind::kText, "collector NAME", true, "Of one collector.", Nameable::kCollector}},
                "Shows each second what is sampled and sent, or that of one interface or collector: on a terminal as a full screen that q ends and h explains, else a line each, until Ctrl-C.", kYang | kStreams, Forms::kState, &MonitorSflow},
        Command{"clear sflow statistics", {},
                "Lets the counts of collectors, interfaces and drops begin at zero; what is sent stays undisturbed.", kSession, Forms::kNone, &ClearStatistics},
        Command{"request sflow test collector", {{Kind::kName, "NAME", false, {}, Nameable::kCollector}},
                "Sends the collector one datagram, and shows what the network answers within a second and how to see it there.", kBoth, Forms::kState, &TestCollector},
    };
    // clang-format on
}

}  // namespace cli
