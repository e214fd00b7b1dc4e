// SPDX-License-Identifier: Apache-2.0
#include "cli/data/path_reader.h"

#include <libyang/libyang.h>

#include <cstdint>

#include "cli/data/error.h"
#include "cli/data/ranges.h"
#include "cli/data/type_words.h"
#include "cli/data/words.h"

namespace cli {
namespace {

std::string KeyNames(const lysc_node* list)
{
    std::string names;
    for (const lysc_node* key = lysc_node_child(list); key && IsKey(key); key = key->next)
        names += (names.empty() ? "" : " and ") + std::string(key->name);
    return names;
}

/// The child of that name, or the only one whose name begins so. Throws Error if there are several.
const lysc_node* ChildCalled(const ly_ctx* yang, const lysc_node* parent, const std::string& word)
{
    const lysc_node* begun = nullptr;
    std::string names;
    const lysc_node* exact = FindChild(yang, parent, [&](const lysc_node* node) {
        if (word == node->name) return true;
        if (std::string_view(node->name).starts_with(word)) {
            names += (begun ? ", " : "") + std::string(node->name);
            begun = node;
        }
        return false;
    });
    if (exact || word.empty()) return exact;
    if (names.find(',') != std::string::npos) throw Error("\"" + word + "\" may be " + names);
    return begun;
}

}  // namespace

bool IsLeaf(const lysc_node* node) { return (node->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0; }

bool IsKey(const lysc_node* node) { return (node->flags & LYS_KEY) != 0; }

const lysc_node* FindChild(const ly_ctx* yang, const lysc_node* parent,
                           const std::function<bool(const lysc_node*)>& visit)
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

void PathReader::Walk()
{
    while (!AtEnd() && !m_rangeAt && !(Last() && IsLeaf(Last()))) Enter(Take());
}

bool PathReader::LacksKeys() const
{
    return Last() && Last()->nodetype == LYS_LIST && place.steps.back().keys.empty();
}

void PathReader::TakeValue()
{
    const std::string& value = Take();
    CheckValue(m_yang, Last(), value);
    place.value = value;
}

void PathReader::LeaveLeaf()
{
    place.steps.pop_back();
    place.value.reset();
}

void PathReader::RefuseRest() const
{
    if (AtEnd()) return;
    throw Error("\"" + m_words[m_used] + "\" is one word too many after " + WordsOf(place) +
                "; put a value with blanks in double quotes");
}

void PathReader::RefuseMissingKeys() const
{
    if (!LacksKeys()) return;
    throw Error(WordsOf(place) + " has several entries: add the " + KeyNames(Last()) + " of one");
}

void PathReader::Enter(const std::string& word)
{
    const lysc_node* parent = Last();
    const lysc_node* child = ChildCalled(m_yang, parent, word);
    if (!child) RefuseWord(word);
    if (!parent && child->parent) place.steps.push_back({child->parent, {}});
    place.steps.push_back({child, {}});
    if (child->nodetype == LYS_LIST && !AtEnd()) TakeKeys();
}

void PathReader::TakeKeys()
{
    const std::string where = WordsOf(place);
    const lysc_node* list = Last();
    std::vector<std::string> keys;
    for (const lysc_node* key = lysc_node_child(list); key && IsKey(key); key = key->next) {
        if (AtEnd())
            throw Error(where + " needs " + KeyNames(list) + " of the entry: " + key->name + " is missing");
        const std::string& value = Take();
        if (HasRange(value)) {
            m_rangeAt = m_used - 1;
            return;
        }
        CheckValue(m_yang, key, value);
        keys.push_back(value);
    }
    place.steps.back().keys = std::move(keys);
}

void PathReader::RefuseWord(const std::string& word) const
{
    const lysc_node* parent = Last();
    const lysc_node* key = parent ? lys_find_child(parent, parent->module, word.c_str(), 0, 0, 0) : nullptr;
    if (key && IsKey(key))
        throw Error(std::string(key->name) + " is the key of " + WordsOf(place) +
                    " and does not change; create an entry of the other name and delete this one");
    throw Error("\"" + word + "\" is unknown" +
                (parent ? " after " + WordsOf(place) : " as a path's beginning") +
                "; possible: " + PossibleBelow(m_yang, parent));
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
