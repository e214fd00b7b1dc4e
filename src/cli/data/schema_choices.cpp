// SPDX-License-Identifier: Apache-2.0
#include "cli/data/schema_choices.h"

#include <libyang/libyang.h>

#include <cstdint>
#include <string_view>

#include "cdb/schema/extensions.h"
#include "cli/data/error.h"
#include "cli/data/path_reader.h"
#include "cli/data/ranges.h"
#include "cli/data/type_words.h"

namespace cli {
namespace {

std::string FirstSentence(const char* description)
{
    std::string text;
    bool blank = false;
    for (const char c : std::string_view(description ? description : "")) {
        if (c == ' ' || c == '\n') {
            blank = !text.empty();
            if (blank && text.ends_with('.')) break;
            continue;
        }
        if (blank) text += ' ';
        blank = false;
        text += c;
    }
    return text;
}

/// The name of the leaf beside it whose value holds where it has none; empty if there is no such leaf.
std::string_view LeafOfDefault(const lysc_node* node)
{
    const char* path = cdb::Statement(node->exts, "default-ref");
    const std::string_view text = path ? path : "";
    return text.substr(text.rfind('/') + 1);
}

/// What holds where the leaf has no value: one of its own, or that of a leaf beside it. Empty: nothing does.
std::string DefaultOf(const lysc_node* node)
{
    if (node->nodetype != LYS_LEAF) return {};
    if (const lyd_value* value = reinterpret_cast<const lysc_node_leaf*>(node)->dflt)
        return lyd_value_get_canonical(node->module->ctx, value);
    const std::string_view reference = LeafOfDefault(node);
    return reference.empty() ? std::string() : "the " + std::string(reference);
}

/// "<1..16777215 packets>", with the default behind it.
Choice ValueOf(const lysc_node* leaf)
{
    const std::string standard = DefaultOf(leaf);
    return {"<" + AllowedValues(leaf) + ">",
            HelpOf(leaf) + (standard.empty() ? "" : " Default: " + standard + "."), true};
}

void AddEnums(const lysc_type_enum* type, std::vector<Choice>& words)
{
    LY_ARRAY_COUNT_TYPE i = 0;
    LY_ARRAY_FOR(type->enums, i) words.push_back({type->enums[i].name, FirstSentence(type->enums[i].dsc)});
}

/// The list whose key the reference leads to; null if it leads elsewhere.
const lysc_node* ReferencedList(const lysc_node* leaf)
{
    const lysc_type* type = TypeOf(leaf);
    if (type->basetype != LY_TYPE_LEAFREF) return nullptr;
    const auto* reference = reinterpret_cast<const lysc_type_leafref*>(type);
    ly_set* path = nullptr;  // the nodes on the way, and the target
    if (lys_find_expr_atoms(leaf, leaf->module, reference->path, reference->prefixes, 0, &path) != LY_SUCCESS)
        return nullptr;
    const lysc_node* target = nullptr;
    for (std::uint32_t at = 0; at < path->count; ++at)
        if (path->snodes[at] != leaf && IsLeaf(path->snodes[at])) target = path->snodes[at];
    ly_set_free(path, nullptr);
    return target && IsKey(target) ? target->parent : nullptr;
}

Place PlaceOf(const lysc_node* node)
{
    Place place;
    for (; node; node = node->parent) place.steps.insert(place.steps.begin(), Step{node, {}});
    return place;
}

Choices ValuesOf(const lysc_node* leaf)
{
    Choices choices;
    const lysc_type* type = TypeOf(leaf);
    if (type->basetype == LY_TYPE_ENUM)
        AddEnums(reinterpret_cast<const lysc_type_enum*>(type), choices.words);
    else if (type->basetype == LY_TYPE_BOOL)
        choices.words = {{"true", HelpOf(leaf)}, {"false", ""}};
    else
        choices.words.push_back(ValueOf(leaf));
    if (const lysc_node* list = ReferencedList(leaf)) choices.keysOf = PlaceOf(list);
    return choices;
}

void AddChildren(const ly_ctx* yang, const lysc_node* parent, PathUse use, std::vector<Choice>& words)
{
    FindChild(yang, parent, [&](const lysc_node* child) {
        if (use != PathUse::kEdit || !IsLeaf(child)) words.push_back({child->name, HelpOf(child)});
        return false;
    });
}

/// The first key of the list at the end of the place.
Choices KeysOf(const Place& place)
{
    Choices choices = ValuesOf(lysc_node_child(place.steps.back().schema));
    // A reference's target has the names that are right here; the list itself those that are there already.
    if (!choices.keysOf) choices.keysOf = place;
    return choices;
}

Choices ChoicesAt(const ly_ctx* yang, PathReader& reader, PathUse use)
{
    reader.Walk();
    const lysc_node* last = reader.Last();
    while (last && IsLeaf(last) && !reader.AtEnd()) {  // its value, then what stands beside it
        if (use == PathUse::kSet) reader.Take();
        if (reader.AtEnd() && use != PathUse::kSet) break;
        reader.LeaveLeaf();
        if (reader.AtEnd()) {
            Choices beside;
            FindChild(yang, last->parent, [&](const lysc_node* child) {
                if (IsLeaf(child)) beside.words.push_back({child->name, HelpOf(child)});
                return false;
            });
            return beside;
        }
        reader.Walk();
        last = reader.Last();
    }
    if (reader.LacksKeys()) return KeysOf(reader.place);
    if (last && IsLeaf(last)) return use == PathUse::kSet ? ValuesOf(last) : Choices{};
    Choices choices;
    AddChildren(yang, last, use, choices.words);
    return choices;
}

}  // namespace

std::string HelpOf(const lysc_node* node) { return FirstSentence(node->dsc); }

Choices ChoicesBehind(const ly_ctx* yang, std::span<const std::string> words, PathUse use)
{
    // What follows a range follows each of its names.
    std::vector<std::string> plain(words.begin(), words.end());
    try {
        for (std::string& word : plain)
            if (HasRange(word)) word = NamesOf(word).front();
    } catch (const Error&) {
        return {};
    }
    PathReader reader(yang, plain);
    try {
        return ChoicesAt(yang, reader, use);
    } catch (const Error&) {
        return {};
    }
}

}  // namespace cli
