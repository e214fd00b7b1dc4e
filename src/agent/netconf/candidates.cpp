// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/candidates.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "agent/data/yang_tree.h"
#include "agent/state/system_state.h"

namespace agent {
namespace {

/// How many editors of the shared candidate are remembered.
constexpr std::size_t kMaxEditors = 32;

void CountUp(Candidates::Edits& edits, std::int64_t nowUs)
{
    ++edits.count;
    edits.lastUs = nowUs;
}

/// Writes the entries of one list of sessions.
class Entries {
public:
    Entries(const lysc_node* container, const char* list, StateTree& tree)
        : m_container(container), m_list(SchemaChild(container, list)), m_tree(tree)
    {
    }

    /// `session` in ascending byte order. Null if there is no such list.
    StateTree::Node* Add(const std::string& session)
    {
        if (m_list == nullptr) return nullptr;
        return StateTree::Append(m_tree.At(m_container), m_list, {m_tree.Keep(session)});
    }

    void Leaf(StateTree::Node& entry, const char* name, std::string_view value)
    {
        if (const lysc_node* leaf = SchemaChild(m_list, name))
            entry.leaves.push_back({leaf, m_tree.Keep(value)});
    }

    void Leaf(StateTree::Node& entry, const Candidates::Edits& edits)
    {
        Leaf(entry, "edits", std::to_string(edits.count));
        if (edits.count > 0) Leaf(entry, "last-edit", DateAndTime(edits.lastUs));
    }

private:
    const lysc_node* m_container;
    const lysc_node* m_list;
    StateTree& m_tree;
};

}  // namespace

Candidates::Candidates(cdb::Datastore& shared) : m_shared(DatastorePtr(), &shared) {}

DatastorePtr Candidates::Of(SessionId session) const
{
    const auto found = m_private.find(session);
    return found == m_private.end() ? m_shared : found->second.datastore;
}

Candidates::Private* Candidates::Find(SessionId session)
{
    const auto found = m_private.find(session);
    return found == m_private.end() ? nullptr : &found->second;
}

DatastorePtr Candidates::Close(SessionId session)
{
    auto found = m_private.extract(session);
    return found ? std::move(found.mapped().datastore) : nullptr;
}

void Candidates::NoteEdit(SessionId session, const std::string& user, std::int64_t nowUs)
{
    if (Private* own = Find(session)) return CountUp(own->edits, nowUs);
    Editor editor{session, user, {}};
    const auto found = std::find_if(m_editors.begin(), m_editors.end(),
                                    [session](const Editor& each) { return each.session == session; });
    if (found != m_editors.end()) {
        editor = std::move(*found);
        m_editors.erase(found);
    } else if (m_editors.size() == kMaxEditors) {
        m_editors.pop_front();
    }
    CountUp(editor.edits, nowUs);
    m_editors.push_back(std::move(editor));
}

std::vector<std::pair<std::string, std::uint32_t>> Candidates::OthersIn(SessionId session) const
{
    std::vector<std::pair<std::string, std::uint32_t>> others;
    if (m_private.contains(session)) return others;
    for (const Editor& editor : m_editors)
        if (editor.session != session) others.emplace_back(editor.user, editor.edits.count);
    return others;
}

void Candidates::NoteClean(SessionId session, const DatastorePtr& datastore)
{
    if (datastore == m_shared) return NoteSharedClean();
    Private* own = Find(session);
    if (own == nullptr || own->datastore != datastore) return;
    own->edits = {};
    own->base = datastore->Base();
}

void Candidates::AddState(const lysc_node* container, StateTree& tree) const
{
    // As texts, for lists are in the byte order of their keys.
    std::map<std::string, const Editor*> editors;
    for (const Editor& each : m_editors) editors.emplace(std::to_string(each.session), &each);
    Entries shared(container, "editor", tree);
    for (const auto& [session, editor] : editors) {
        StateTree::Node* entry = shared.Add(session);
        if (entry == nullptr) continue;
        shared.Leaf(*entry, "user", editor->user);
        shared.Leaf(*entry, editor->edits);
    }
    std::map<std::string, const Private*> candidates;
    for (const auto& [session, each] : m_private) candidates.emplace(std::to_string(session), &each);
    Entries own(container, "private", tree);
    for (const auto& [session, each] : candidates) {
        StateTree::Node* entry = own.Add(session);
        if (entry == nullptr) continue;
        own.Leaf(*entry, "user", each->user);
        own.Leaf(*entry, "opened", DateAndTime(each->openedUs));
        own.Leaf(*entry, "base-commit", std::to_string(each->base));
        own.Leaf(*entry, each->edits);
    }
}

}  // namespace agent
