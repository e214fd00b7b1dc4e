// SPDX-License-Identifier: Apache-2.0
#include <ostream>
#include <string>
#include <vector>

#include "cli/commands/groups.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/config_lines.h"
#include "cli/data/config_text.h"
#include "cli/data/data_tree.h"
#include "cli/data/edit_xml.h"
#include "cli/data/schema_words.h"
#include "cli/screens/counted.h"
#include "netconf/requests.h"

namespace cli {
namespace {

/// Edits the candidate, all or nothing. Only validate and commit check the whole: until then it may lack what
/// a later command adds.
void Edit(Call& call, const std::string& config)
{
    Request(call, netconf::EditConfig(config, {"merge", "set", "rollback-on-error"}));
    ++call.shell.edits;
}

/// The words of the path, behind those of the place that `edit` has led to.
std::vector<std::string> PathOf(const Call& call)
{
    std::vector<std::string> words = call.shell.place;
    words.insert(words.end(), call.arguments.words.begin(), call.arguments.words.end());
    return words;
}

void Set(Call& call) { Edit(call, SetXml(PlacesToSet(call.yang, PathOf(call)))); }

void Delete(Call& call) { Edit(call, DeleteXml(PlacesToDelete(call.yang, PathOf(call)))); }

void EditPlace(Call& call) { call.shell.place = WordListOf(PlaceToEdit(call.yang, PathOf(call))); }

void Up(Call& call)
{
    Place place = PlaceToEdit(call.yang, call.shell.place);
    if (!place.steps.empty()) place.steps.pop_back();
    call.shell.place = WordListOf(place);
}

void Top(Call& call) { call.shell.place.clear(); }

void TellLoaded(Call& call, const Tree& tree)
{
    call.err << Counted(ValueCount(tree.get()), "value") << " loaded into the candidate\n";
}

void LoadMerge(Call& call)
{
    const Tree tree = ReadConfigFile(call.yang, call.arguments.text);
    Edit(call, tree ? ToCompactXml(tree.get()) : "");
    TellLoaded(call, tree);
}

void LoadSet(Call& call)
{
    const std::string& path = call.arguments.text;
    const ReadLines read =
        ReadConfigLines(call.yang, FileContent(path), path == "-" ? "standard input" : path);
    Edit(call, read.xml);
    call.err << Counted(read.values, "line") << " carried out in the candidate\n";
}

void LoadReplace(Call& call)
{
    const Tree tree = ReadConfigFile(call.yang, call.arguments.text);
    Edit(call, ReplaceXml(call.yang, tree.get()));
    TellLoaded(call, tree);
}

void ShowConfiguration(Call& call)
{
    std::vector<std::string> words = PathOf(call);
    // No node at the top has one of these names.
    std::string datastore = "candidate";
    if (!words.empty() && (words.front() == "running" || words.front() == "candidate")) {
        datastore = words.front();
        words.erase(words.begin());
    }
    const std::vector<Place> places = PlacesToShow(call.yang, words);
    const bool all = places.front().steps.empty();
    const std::string filter = FilterXml(places);
    const Tree tree =
        RequestData(call, all ? netconf::GetConfig(datastore) : netconf::GetConfig(datastore, filter));
    Show(call, tree, [&](const lyd_node* data) {
        // Of several places each has to be told from the others.
        return all || places.size() > 1 ? ToBlocks(data) : ToBlocks(NodesAt(data, places.front()));
    });
}

void Compare(Call& call)
{
    const Tree running = RequestData(call, netconf::GetTouched("running"));
    const Tree candidate = RequestData(call, netconf::GetTouched("candidate"));
    call.out << call.style.Differences(Differences(running.get(), candidate.get()));
}

void Validate(Call& call)
{
    Request(call, netconf::Validate());
    call.err << "the candidate is valid\n";
}

}  // namespace

std::vector<Command> ConfigurationCommands()
{
    using Kind = ArgumentKind;
    constexpr unsigned kBoth = kSession | kYang;
    // Two lines a row read better than one line an element.
    // clang-format off
    return {
        Command{"set", {{Kind::kPath, "PATH... [VALUE]"}},
                "Gives a leaf the value behind its path, or creates a list's entry.", kBoth | kMode, Forms::kNone, &Set},
        Command{"edit", {{Kind::kPath, "PATH..."}},
                "Leads to a container or a list's entry; paths begin there until up, top or exit.", kYang | kMode, Forms::kNone, &EditPlace},
        Command{"up", {}, "Leads to what is around the place that edit has led to.", kYang | kMode, Forms::kNone, &Up},
        Command{"top", {}, "Leads back to the whole configuration.", kMode, Forms::kNone, &Top},
        Command{"delete", {{Kind::kPath, "PATH..."}},
                "Deletes a leaf, a list's entry, or all that is below a path.", kBoth | kMode, Forms::kNone, &Delete},
        Command{"load merge", {{Kind::kFile, "FILE"}},
                "Adds a file's configuration to the candidate: JSON, XML, set lines, or what show configuration prints; - is standard input.", kBoth | kMode, Forms::kNone, &LoadMerge},
        Command{"load replace", {{Kind::kFile, "FILE"}},
                "Replaces the candidate's configuration by a file's, in any of these forms.", kBoth | kMode, Forms::kNone,
                &LoadReplace},
        Command{"load set", {{Kind::kFile, "FILE"}},
                "Carries out a file's lines of set and delete, all or none; of what is said twice the later holds.", kBoth | kMode,
                Forms::kNone, &LoadSet},
        Command{"show configuration", {{Kind::kPath, "[running] PATH...", true}},
                "Shows the candidate, which is the running configuration with what was edited since; or the running one.", kBoth,
                Forms::kConfiguration, &ShowConfiguration},
        Command{"compare", {},
                "Shows what a commit would change: + what comes, - what goes.", kBoth, Forms::kNone, &Compare},
        Command{"validate", {}, "Checks the candidate as a commit would.", kSession, Forms::kNone, &Validate},
    };
    // clang-format on
}

}  // namespace cli
