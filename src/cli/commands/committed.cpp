// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/committed.h"

#include <libyang/libyang.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/error.h"
#include "cli/data/state_node.h"
#include "cli/screens/commit_report.h"
#include "cli/screens/text_width.h"
#include "netconf/client.h"
#include "netconf/requests.h"
#include "netconf/xml.h"

namespace cli {
namespace {

/// More interfaces than these are looked for among all.
constexpr std::size_t kMostAskedByName = 64;
/// The change of a larger commit is not read again.
constexpr std::size_t kMostRead = 1'000;

/// What of sFlow a commit has changed.
struct Touched {
    bool sflow = false;
    bool all = false;                  // too many interfaces to ask for each
    std::set<std::string> interfaces;  // empty with `all` where the change was not read
};

Children SflowOf(const Tree& tree) { return Children(tree.get()).Of("oam").Of("sflow"); }

Touched TouchedBy(Call& call, const netconf::Reply& reply)
{
    if (*reply.changes > kMostRead) return {true, true, {}};
    const netconf::Reply change = RequestReply(call, netconf::CommitChanges(std::to_string(*reply.commit)));
    const auto tree = [&](const char* name) {
        const auto found = change.output.find(name);
        return ParseReply(call.yang, found == change.output.end() ? std::string() : found->second);
    };
    const Tree before = tree("before");
    const Tree after = tree("after");
    Touched touched{!SflowOf(before).None() || !SflowOf(after).None(), false, {}};
    SflowOf(after).ForEach(
        "interface", [&](const lyd_node* node) { touched.interfaces.insert(Children(node).Value("name")); });
    touched.all = touched.interfaces.size() > kMostAskedByName;
    return touched;
}

std::string FilterFor(const Touched& touched)
{
    std::string filter;
    if (touched.all) filter = "<problem/>";
    if (!touched.all)
        for (const std::string& name : touched.interfaces)
            filter +=
                "<problem><subject>interface</subject><name>" + netconf::Escaped(name) + "</name></problem>";
    // With the session, for without a manager there are no problems either.
    return StateFilter("<oam><sflow><manager><session/></manager>" + filter + "</sflow></oam>");
}

/// As many names as a line has room for, at least one.
std::string MissingText(const std::vector<std::string>& missing, std::size_t width)
{
    std::string text = "warning: not in the kernel, so not sampled yet: " + missing.front();
    for (std::size_t at = 1; at < missing.size(); ++at) {
        const std::string rest = " and " + std::to_string(missing.size() - at) + " more";
        const std::size_t behind = at + 1 == missing.size() ? 0 : rest.size();
        if (Width(text) + 2 + Width(missing[at]) + behind > width) return text + rest;
        text += ", " + missing[at];
    }
    return text;
}

void WarnOfSflow(Call& call, const netconf::Reply& reply)
{
    const Touched touched = TouchedBy(call, reply);
    if (!touched.sflow) return;
    const Tree state = RequestState(call, netconf::Get(FilterFor(touched)));
    std::vector<std::string> missing;
    SflowOf(state).ForEach("problem", [&](const lyd_node* node) {
        const Children problem(node);
        const std::string name = problem.Value("name");
        if (problem.Value("reason") == "interface-missing" &&
            (touched.interfaces.empty() || touched.interfaces.contains(name)))
            missing.push_back(name);
    });
    if (!missing.empty()) call.err << MissingText(missing, call.width) << '\n';
}

}  // namespace

void Committed(Call& call, const netconf::Reply& reply, std::string_view before, std::string_view nothing)
{
    call.shell.edits = 0;
    const std::string report = CommitReport(reply);
    if (call.format == Format::kJson)
        call.out << CommitReportJson(reply);
    else if (report.empty())
        call.err << nothing << '\n';
    else
        call.err << before << report << '\n';
    TellWarnings(call, reply);
    const std::string others = OthersText(reply);
    if (!others.empty()) call.err << "warning: " << others << '\n';
    if (!reply.commit || reply.changes.value_or(0) == 0) return;
    try {
        WarnOfSflow(call, reply);
    } catch (const Error& error) {
        call.err << "warning: " << error.what() << '\n';
    }
}

}  // namespace cli
