// SPDX-License-Identifier: Apache-2.0
#include "cli/data/schema_words.h"

#include <libyang/libyang.h>

#include <cstddef>
#include <cstdint>

#include "cli/data/error.h"
#include "cli/data/words.h"

namespace cli {
namespace {

constexpr const char* kRootModule = "switch-config";
constexpr const char* kRootName = "config";

bool IsLeaf(const lysc_node* node) { return (node->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0; }

bool IsKey(const lysc_node* node) { return (node->flags & LYS_KEY) != 0; }

/// Calls `visit` with each configuration node that may stand below `parent` (null: at the top of a
/// path, where the nodes of the root container come first) until it returns true.
template <typename Visit>
const lysc_node* FindChild(const ly_ctx* yang, const lysc_node* parent, Visit visit)
{
    const lysc_node* from = parent ? parent : RootContainer(yang);
    for (const lysc_node* child = nullptr; (child = lys_getnext(child, from, nullptr, 0));)
        if ((child->flags & LYS_CONFIG_W) && !IsKey(child) && visit(child)) return child;
    if (parent) return nullptr;
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(yang, &index)) {
        if (!module->implemented || !module->compiled) continue;
        for (const lysc_node* top = nullptr; (top = lys_getnext(top, nullptr, module->compiled, 0));)
            if ((top->flags & LYS_CONFIG_W) && top != from && visit(top)) return top;
    }
    return nullptr;
}

const lysc_type* TypeOf(const lysc_node* leaf)
{
    return leaf->nodetype == LYS_LEAFLIST ? reinterpret_cast<const lysc_node_leaflist*>(leaf)->type
                                          : reinterpret_cast<const lysc_node_leaf*>(leaf)->type;
}

const char* UnitsOf(const lysc_node* leaf)
{
    return leaf->nodetype == LYS_LEAFLIST ? reinterpret_cast<const lysc_node_leaflist*>(leaf)->units
                                          : reinterpret_cast<const lysc_node_leaf*>(leaf)->units;
}

std::string Range(const lysc_type_num* type, bool isSigned, const std::string& otherwise)
{
    if (!type->range) return otherwise;
    std::string text;
    LY_ARRAY_COUNT_TYPE i = 0;
    LY_ARRAY_FOR(type->range->parts, i)
    {
        const lysc_range::lysc_range_part& part = type->range->parts[i];
        if (!text.empty()) text += " or ";
        text += isSigned ? std::to_string(part.min_64) + ".." + std::to_string(part.max_64)
                         : std::to_string(part.min_u64) + ".." + std::to_string(part.max_u64);
    }
    return text;
}

std::string Enums(const lysc_type_enum* type)
{
    std::string text;
    LY_ARRAY_COUNT_TYPE i = 0;
    LY_ARRAY_FOR(type->enums, i)
    {
        if (!text.empty()) text += ", ";
        text += type->enums[i].name;
    }
    return text;
}

std::string Allowed(const lysc_type* type)
{
    const auto* number = reinterpret_cast<const lysc_type_num*>(type);
    switch (type->basetype) {
    case LY_TYPE_BOOL:
        return "true or false";
    case LY_TYPE_ENUM:
        return Enums(reinterpret_cast<const lysc_type_enum*>(type));
    case LY_TYPE_UINT8:
        return Range(number, false, "0..255");
    case LY_TYPE_UINT16:
        return Range(number, false, "0..65535");
    case LY_TYPE_UINT32:
        return Range(number, false, "0..4294967295");
    case LY_TYPE_UINT64:
        return Range(number, false, "0..18446744073709551615");
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_INT64:
        return Range(number, true, "a whole number");
    case LY_TYPE_LEAFREF:
        return Allowed(reinterpret_cast<const lysc_type_leafref*>(type)->realtype);
    default:
        return "text";
    }
}

/// What a leaf or leaf-list takes, in words: "1..16777215 packets", "true or false", "text"; never empty.
std::string AllowedValues(const lysc_node* leaf)
{
    std::string text = Allowed(TypeOf(leaf));
    if (const char* units = UnitsOf(leaf)) text = text + " " + units;
    return text;
}

/// Whether the type limits its values, so that AllowedValues helps after a refusal.
bool HasLimits(const lysc_node* leaf) { return Allowed(TypeOf(leaf)) != "text"; }

/// Why libyang refuses the value; empty if it takes it.
std::string Refusal(const ly_ctx* yang, const lysc_node* leaf, const std::string& value)
{
    ly_err_clean(const_cast<ly_ctx*>(yang), nullptr);
    const LY_ERR result =
        lyd_value_validate(yang, leaf, value.data(), value.size(), nullptr, nullptr, nullptr);
    // "incomplete": right by its type; the database checks whether the referenced value exists.
    if (result == LY_SUCCESS || result == LY_EINCOMPLETE) return {};
    const char* message = ly_errmsg(yang);
    return message ? message : "the value is not allowed";
}

void CheckValue(const ly_ctx* yang, const lysc_node* leaf, const std::string& value, const std::string& where)
{
    std::string refusal = Refusal(yang, leaf, value);
    if (refusal.empty()) return;
    if (HasLimits(leaf))
        refusal += (refusal.ends_with('.') ? " Allowed: " : "; allowed: ") + AllowedValues(leaf);
    throw Error(where + ": " + refusal);
}

/// Reads words one after the other into a place.
class Reader {
public:
    Reader(const ly_ctx* yang, std::span<const std::string> words) : m_yang(yang), m_words(words) {}

    /// Takes words as far as they lead: to their end or to a leaf.
    void Walk()
    {
        while (m_used < m_words.size() && !(Last() && IsLeaf(Last()))) Enter(Take());
    }

    [[nodiscard]] bool AtEnd() const { return m_used == m_words.size(); }
    const std::string& Take() { return m_words[m_used++]; }
    [[nodiscard]] const lysc_node* Last() const
    {
        return place.steps.empty() ? nullptr : place.steps.back().schema;
    }
    [[nodiscard]] bool LacksKeys() const
    {
        return Last() && Last()->nodetype == LYS_LIST && place.steps.back().keys.empty();
    }

    /// Takes the value of the leaf at the end.
    void TakeValue()
    {
        const std::string& value = Take();
        CheckValue(m_yang, Last(), value, WordsOf(place));
        place.value = value;
    }

    void RefuseRest() const
    {
        if (AtEnd()) return;
        throw Error("\"" + m_words[m_used] + "\" is one word too many after " + WordsOf(place) +
                    "; put a value with blanks in double quotes");
    }

    void RefuseMissingKeys() const
    {
        if (!LacksKeys()) return;
        throw Error(WordsOf(place) + " has several entries: add the " + KeyNames(Last()) + " of one");
    }

    Place place;

private:
    static std::string KeyNames(const lysc_node* list)
    {
        std::string names;
        for (const lysc_node* key = lysc_node_child(list); key && IsKey(key); key = key->next)
            names += (names.empty() ? "" : " and ") + std::string(key->name);
        return names;
    }

    void Enter(const std::string& word)
    {
        const lysc_node* parent = Last();
        const lysc_node* child =
            FindChild(m_yang, parent, [&](const lysc_node* n) { return word == n->name; });
        if (!child) RefuseWord(word);
        if (!parent && child->parent) place.steps.push_back({child->parent, {}});
        place.steps.push_back({child, {}});
        if (child->nodetype == LYS_LIST && !AtEnd()) TakeKeys();
    }

    void TakeKeys()
    {
        const std::string where = WordsOf(place);
        const lysc_node* list = Last();
        std::vector<std::string> keys;
        for (const lysc_node* key = lysc_node_child(list); key && IsKey(key); key = key->next) {
            if (AtEnd())
                throw Error(where + " needs " + KeyNames(list) + " of the entry: " + key->name +
                            " is missing");
            const std::string& value = Take();
            CheckValue(m_yang, key, value, where + " " + Quoted(value));
            keys.push_back(value);
        }
        place.steps.back().keys = std::move(keys);
    }

    [[noreturn]] void RefuseWord(const std::string& word) const
    {
        const lysc_node* parent = Last();
        const lysc_node* key =
            parent ? lys_find_child(parent, parent->module, word.c_str(), 0, 0, 0) : nullptr;
        if (key && IsKey(key))
            throw Error(std::string(key->name) + " is the key of " + WordsOf(place) +
                        " and does not change; create an entry of the other name and delete this one");
        throw Error("\"" + word + "\" is unknown" +
                    (parent ? " after " + WordsOf(place) : " as a path's beginning") +
                    "; possible: " + PossibleBelow(m_yang, parent));
    }

    const ly_ctx* m_yang;
    std::span<const std::string> m_words;
    std::size_t m_used = 0;
};

bool IsPresence(const lysc_node* node)
{
    return node->nodetype == LYS_CONTAINER && (node->flags & LYS_PRESENCE);
}

bool IsEmptyType(const lysc_node* node)
{
    return node->nodetype == LYS_LEAF && TypeOf(node)->basetype == LY_TYPE_EMPTY;
}

}  // namespace

const lysc_node* RootContainer(const ly_ctx* yang)
{
    const lys_module* module = ly_ctx_get_module_implemented(yang, kRootModule);
    const lysc_node* root =
        module ? lys_find_child(nullptr, module, kRootName, 0, LYS_CONTAINER, 0) : nullptr;
    if (!root)
        throw Error(std::string("the YANG modules have no container ") + kRootName + " in " + kRootModule);
    return root;
}

Place PlaceToSet(const ly_ctx* yang, std::span<const std::string> words)
{
    Reader reader(yang, words);
    reader.Walk();
    const lysc_node* last = reader.Last();
    if (last && IsLeaf(last) && !IsEmptyType(last)) {
        if (reader.AtEnd()) throw Error(WordsOf(reader.place) + " needs a value: " + AllowedValues(last));
        reader.TakeValue();
    }
    reader.RefuseRest();
    reader.RefuseMissingKeys();
    if (!last || (last->nodetype == LYS_CONTAINER && !IsPresence(last)))
        throw Error((last ? WordsOf(reader.place) : "the configuration") +
                    " has no value of its own; possible below it: " + PossibleBelow(yang, last));
    return std::move(reader.place);
}

Place PlaceToDelete(const ly_ctx* yang, std::span<const std::string> words)
{
    Reader reader(yang, words);
    reader.Walk();
    if (!reader.Last())
        throw Error("delete needs the path of what to delete; possible: " + PossibleBelow(yang, nullptr));
    if (reader.Last()->nodetype == LYS_LEAFLIST) {
        if (reader.AtEnd()) throw Error(WordsOf(reader.place) + " has several values: add the one to delete");
        reader.TakeValue();
    }
    reader.RefuseRest();
    reader.RefuseMissingKeys();
    return std::move(reader.place);
}

Place PlaceToShow(const ly_ctx* yang, std::span<const std::string> words)
{
    Reader reader(yang, words);
    reader.Walk();
    reader.RefuseRest();
    return std::move(reader.place);
}

std::string WordsOf(const Place& place)
{
    std::string text;
    for (const Step& step : place.steps) {
        if (!step.schema->parent && std::string_view(step.schema->name) == kRootName &&
            std::string_view(step.schema->module->name) == kRootModule)
            continue;
        text += (text.empty() ? "" : " ") + std::string(step.schema->name);
        for (const std::string& key : step.keys) text += " " + Quoted(key);
    }
    return text;
}

std::string PossibleBelow(const ly_ctx* yang, const lysc_node* parent)
{
    std::string names;
    FindChild(yang, parent, [&](const lysc_node* child) {
        names += (names.empty() ? "" : ", ") + std::string(child->name);
        return false;
    });
    return names.empty() ? "nothing" : names;
}

}  // namespace cli
