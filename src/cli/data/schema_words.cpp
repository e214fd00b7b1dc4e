// SPDX-License-Identifier: Apache-2.0
#include "cli/data/schema_words.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <iterator>

#include "cli/data/error.h"
#include "cli/data/path_reader.h"
#include "cli/data/ranges.h"
#include "cli/data/type_words.h"
#include "cli/data/words.h"

namespace cli {
namespace {

bool IsPresence(const lysc_node* node)
{
    return node->nodetype == LYS_CONTAINER && (node->flags & LYS_PRESENCE);
}

bool IsEmptyType(const lysc_node* node)
{
    return node->nodetype == LYS_LEAF && TypeOf(node)->basetype == LY_TYPE_EMPTY;
}

/// Goes on beside a leaf, if more words follow that name another one there.
bool GoOn(const ly_ctx* yang, PathReader& reader)
{
    if (reader.AtEnd()) return false;
    const lysc_node* parent = reader.place.steps.size() > 1 ? reader.Last()->parent : nullptr;
    const std::string& word = reader.Next();
    const bool isBeside =
        IsLeaf(reader.Last()) && parent && FindChild(yang, parent, [&](const lysc_node* node) {
            return std::string_view(node->name).starts_with(word);
        });
    if (!isBeside) reader.RefuseRest();
    reader.LeaveLeaf();
    return true;
}

using Words = std::vector<std::string>;
using Read = std::function<void(PathReader&, std::vector<Place>&)>;

/// The places of the words, which `read` appends; once for each name of a range.
std::vector<Place> ForEachName(const ly_ctx* yang, std::span<const std::string> words, const Read& read)
{
    std::vector<Place> places;
    std::vector<Words> open{Words(words.begin(), words.end())};  // the next one at the end
    while (!open.empty()) {
        const Words each = std::move(open.back());
        open.pop_back();
        PathReader reader(yang, each);
        std::vector<Place> found;
        std::exception_ptr refused;
        try {
            read(reader, found);
        } catch (const Error&) {
            refused = std::current_exception();
        }
        if (const auto at = reader.RangeAt()) {
            const Words names = NamesOf(each[*at]);
            if (names.size() + open.size() > kMostNames)
                throw Error("the command means more than " + std::to_string(kMostNames) +
                            " names; use several commands");
            for (auto name = names.rbegin(); name != names.rend(); ++name) {
                open.push_back(each);
                open.back()[*at] = *name;
            }
            continue;
        }
        if (refused) std::rethrow_exception(refused);
        std::ranges::move(found, std::back_inserter(places));
    }
    return places;
}

}  // namespace

std::vector<Place> PlacesToSet(const ly_ctx* yang, std::span<const std::string> words)
{
    return ForEachName(yang, words, [yang](PathReader& reader, std::vector<Place>& places) {
        do {
            reader.Walk();
            const lysc_node* last = reader.Last();
            if (last && IsLeaf(last) && !IsEmptyType(last)) {
                if (reader.AtEnd())
                    throw Error(WordsOf(reader.place) + " needs a value: " + AllowedValues(last));
                reader.TakeValue();
            }
            reader.RefuseMissingKeys();
            if (!last || (last->nodetype == LYS_CONTAINER && !IsPresence(last)))
                throw Error((last ? WordsOf(reader.place) : "the configuration") +
                            " has no value of its own; possible below it: " + PossibleBelow(yang, last));
            places.push_back(reader.place);
        } while (GoOn(yang, reader));
    });
}

std::vector<Place> PlacesToDelete(const ly_ctx* yang, std::span<const std::string> words)
{
    return ForEachName(yang, words, [yang](PathReader& reader, std::vector<Place>& places) {
        do {
            reader.Walk();
            if (!reader.Last())
                throw Error("delete needs the path of what to delete; possible: " +
                            PossibleBelow(yang, nullptr));
            if (reader.Last()->nodetype == LYS_LEAFLIST) {
                if (reader.AtEnd())
                    throw Error(WordsOf(reader.place) + " has several values: add the one to delete");
                reader.TakeValue();
            }
            reader.RefuseMissingKeys();
            places.push_back(reader.place);
        } while (GoOn(yang, reader));
    });
}

std::vector<Place> PlacesToShow(const ly_ctx* yang, std::span<const std::string> words)
{
    return ForEachName(yang, words, [yang](PathReader& reader, std::vector<Place>& places) {
        do {
            reader.Walk();
            places.push_back(reader.place);
        } while (GoOn(yang, reader));
    });
}

Place PlaceToEdit(const ly_ctx* yang, std::span<const std::string> words)
{
    PathReader reader(yang, words);
    reader.Walk();
    if (const auto at = reader.RangeAt())
        throw Error("\"" + words[*at] + "\": edit leads to one entry, not to several");
    reader.RefuseMissingKeys();
    if (reader.Last() && IsLeaf(reader.Last()))
        throw Error(WordsOf(reader.place) + " has nothing below it; set gives it a value");
    return std::move(reader.place);
}

}  // namespace cli
