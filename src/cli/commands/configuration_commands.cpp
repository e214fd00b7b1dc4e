// SPDX-License-Identifier: Apache-2.0
#include <poll.h>
#include <unistd.h>

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/commands/groups.h"
#include "cli/commands/interrupt.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/config_lines.h"
#include "cli/data/config_text.h"
#include "cli/data/data_tree.h"
#include "cli/data/edit_xml.h"
#include "cli/data/error.h"
#include "cli/data/saved_file.h"
#include "cli/data/schema_words.h"
#include "cli/screens/counted.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

constexpr const char* kTerminal = "terminal";

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

/// Whether the person at the prompt is to type what is loaded.
bool IsTyped(const Call& call) { return call.shell.talks && IsStandardInput(call.arguments.text); }

/// What the person types until Ctrl-D. Throws Error at Ctrl-C.
std::string TypedText(Call& call)
{
    call.err << "type or paste it; Ctrl-D on a line of its own ends it, Ctrl-C drops it" << std::endl;
    const Interrupt interrupt;
    std::string text;
    char block[4'096];
    for (;;) {
        pollfd wanted[] = {{STDIN_FILENO, POLLIN, 0}, {interrupt.Descriptor(), POLLIN, 0}};
        if (::poll(wanted, 2, -1) < 0) continue;
        if (wanted[1].revents != 0) throw Error("dropped; nothing is loaded");
        const ssize_t count = ::read(STDIN_FILENO, block, sizeof block);
        if (count <= 0) return text;
        text.append(block, static_cast<std::size_t>(count));
        if (text.size() > netconf::kMaxMessage) throw Error("it is too long; load it from a file");
    }
}

Tree ReadConfiguration(Call& call)
{
    return IsTyped(call) ? ParseConfigText(call.yang, TypedText(call), kTerminal)
                         : ReadConfigFile(call.yang, call.arguments.text);
}

void LoadMerge(Call& call)
{
    const Tree tree = ReadConfiguration(call);
    Edit(call, tree ? ToCompactXml(tree.get()) : "");
    TellLoaded(call, tree);
}

void LoadSet(Call& call)
{
    const std::string& path = call.arguments.text;
    const std::string name = IsTyped(call) ? kTerminal : NameOfInput(path);
    const ReadLines read =
        ReadConfigLines(call.yang, IsTyped(call) ? TypedText(call) : FileContent(path), name);
    try {
        Edit(call, read.xml);
    } catch (const Refused& why) {
        const auto line = read.deletedAt.find(why.Where());
        if (line == read.deletedAt.end()) throw;
        throw Error(name + ": line " + std::to_string(line->second) + ": " + why.what());
    }
    call.err << Counted(read.values, "line") << " carried out in the candidate\n";
}

void LoadReplace(Call& call)
{
    const Tree tree = ReadConfiguration(call);
    Edit(call, ReplaceXml(call.yang, tree.get()));
    TellLoaded(call, tree);
}

void ShowConfiguration(Call& call)
{
    const std::string& chosen = call.arguments.choice;
    const bool onlyDefaults = chosen == "default";
    const std::string datastore = chosen.empty() ? "candidate" : onlyDefaults ? "running" : chosen;
    const std::vector<Place> places = PlacesToShow(call.yang, PathOf(call));
    const bool all = places.front().steps.empty();
    const std::string filter = FilterXml(places);
    const bool withDefaults = onlyDefaults || call.format == Format::kInherited;
    std::string reply = Request(
        call, netconf::GetConfig(datastore, all ? std::nullopt : std::optional<std::string_view>(filter),
                                 withDefaults ? "report-all-tagged" : std::string_view()));
    const Tree tree = withDefaults ? ParseTagged(call.yang, std::move(reply)) : ParseReply(call.yang, reply);
    if (onlyDefaults) KeepDefaults(tree.get());
    Show(call, tree, [&](const lyd_node* data) {
        // Of several places each has to be told from the others.
        return all || places.size() > 1 ? ToBlocks(data) : ToBlocks(NodesAt(data, places.front()));
    });
}

void Save(Call& call)
{
    const Tree tree = RequestData(call, netconf::GetConfig("candidate"));
    SavedFile file(call.arguments.text);
    file.Write(ToBlocks(tree.get()));
    file.Place();
    call.err << Counted(ValueCount(tree.get()), "value") << " saved in " << call.arguments.text << '\n';
}

void Compare(Call& call)
{
    const Tree running = RequestData(call, netconf::GetTouched("running"));
    const Tree candidate = RequestData(call, netconf::GetTouched("candidate"));
    ShowDifferences(call, Differences(running.get(), candidate.get()));
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
                "Adds a file's configuration to the candidate: JSON, XML, set lines, or what show configuration prints; - or terminal is standard input.", kBoth | kMode, Forms::kNone, &LoadMerge},
        Command{"load replace", {{Kind::kFile, "FILE"}},
                "Replaces the candidate's configuration by a file's, in any of these forms.", kBoth | kMode, Forms::kNone,
                &LoadReplace},
        Command{"load set", {{Kind::kFile, "FILE"}},
                "Carries out a file's lines of set and delete, all or none; of what is said twice the later holds.", kBoth | kMode,
                Forms::kNone, &LoadSet},
        Command{"show configuration", {{Kind::kChoice, "candidate|running|default", true,
                 "With what was edited since the last commit.|What is in effect.|What holds where nothing is configured."}, {Kind::kPath, "PATH...", true}},
                "Shows the candidate, which is the running configuration with what was edited since; or the running one; or the defaults that hold in it.", kBoth,
                Forms::kConfiguration, &ShowConfiguration},
        Command{"save", {{Kind::kFile, "FILE"}},
                "Writes the candidate into a file, as show configuration prints it.", kBoth, Forms::kNone, &Save},
        Command{"compare", {},
                "Shows what a commit would change: + what comes, - what goes.", kBoth, Forms::kNone, &Compare},
    };
    // clang-format on
}

}  // namespace cli
