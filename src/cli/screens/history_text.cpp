// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/history_text.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "base/number.h"
#include "cli/data/state_node.h"
#include "cli/screens/text_table.h"
#include "cli/screens/wrapped_text.h"

namespace cli {
namespace {

Children History(const lyd_node* state) { return Children(state).Of("system").Of("history"); }

std::uint64_t NumberOf(const lyd_node* commit)
{
    return base::ToNumber<std::uint64_t>(Children(commit).Value("id")).value_or(0);
}

/// The newest first.
std::vector<const lyd_node*> Commits(const lyd_node* state)
{
    std::vector<const lyd_node*> commits;
    History(state).ForEach("commit", [&](const lyd_node* commit) { commits.push_back(commit); });
    std::sort(commits.begin(), commits.end(),
              [](const lyd_node* a, const lyd_node* b) { return NumberOf(a) > NumberOf(b); });
    return commits;
}

}  // namespace

void KeepNewest(lyd_node* state, std::size_t count)
{
    const auto commits = Commits(state);
    for (std::size_t at = count; at < commits.size(); ++at) lyd_free_tree(const_cast<lyd_node*>(commits[at]));
}

std::string PendingText(const lyd_node* state)
{
    const Children pending = History(state).Of("pending-confirmation");
    if (pending.None()) return {};
    const bool changed = pending.First("commit") != nullptr;
    std::string text = changed ? "Commit " + pending.Value("commit") : "A commit without changes";
    text += " by " + pending.Value("user") + " waits for its confirmation: ";
    if (pending.First("problem") != nullptr)
        return text + "it could not be rolled back: " + pending.Value("problem") +
               "; a commit or confirm keeps the configuration as it is.\n";
    text +=
        "rolled back to commit " + pending.Value("return-to") + " in " + pending.Value("time-left") + " s";
    if (pending.Value("persistent") == "false")
        text += ", or when session " + pending.Value("session") + " ends";
    return text + ".\n";
}

std::string HistoryText(const lyd_node* state, std::size_t width)
{
    TextTable table({"Commit",
                     "When",
                     {"User", 2, true},
                     {"Source", 1},
                     {"Changes", 3},
                     {"Checkpoints", 4, true},
                     {"Comment", 0, true}});
    for (const lyd_node* node : Commits(state)) {
        const Children commit(node);
        table.Add({commit.Value("id"), commit.Time("time"), commit.Value("user"), commit.Value("source"),
                   commit.Value("changes"), commit.Values("checkpoint"), commit.Value("comment")});
    }
    std::string pending = PendingText(state);
    if (!pending.empty()) {
        pending.pop_back();
        pending = Wrapped(pending, 0, width) + "\n\n";
    }
    return pending + (table.Empty() ? "There is no commit yet.\n" : table.Text(0, width));
}

std::string CommitText(const lyd_node* state)
{
    std::string text;
    for (const lyd_node* node : Commits(state)) {
        const Children commit(node);
        TextTable table({});
        table.Add({"Commit", commit.Value("id")});
        table.Add({"When", commit.Time("time")});
        table.Add({"User", commit.Value("user")});
        table.Add({"Source", commit.Value("source")});
        table.Add({"Changes", commit.Value("changes")});
        table.Add({"Checkpoints", commit.Values("checkpoint")});
        table.Add({"Comment", commit.Value("comment")});
        text += table.Text(0) + "\n";
    }
    return text;
}

std::string CheckpointsText(const lyd_node* state)
{
    TextTable table({"Checkpoint", "Commit", "Set", "By", "In reach"});
    History(state).ForEach("checkpoint", [&](const lyd_node* node) {
        const Children checkpoint(node);
        table.Add({checkpoint.Value("name"), checkpoint.Value("commit"), checkpoint.Time("time"),
                   checkpoint.Value("user"), checkpoint.Value("in-reach") == "true" ? "yes" : "no"});
    });
    return table.Empty() ? "There is no checkpoint.\n" : table.Text(0);
}

}  // namespace cli
