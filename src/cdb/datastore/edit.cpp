// SPDX-License-Identifier: Apache-2.0
// Walks the edit and decides what each operation does. The changes themselves: edit_change.cpp.

#include "cdb/datastore/edit.h"

#include <libyang/libyang.h>

#include <string_view>

#include "cdb/datastore/edit_errors.h"

namespace cdb {
namespace {

bool IsPresence(const lysc_node* node)
{
    return node->nodetype == LYS_CONTAINER && (node->flags & LYS_PRESENCE) != 0;
}

bool HasDefaultValue(const lyd_node* leaf)
{
    const lyd_value* byDefault = reinterpret_cast<const lysc_node_leaf*>(leaf->schema)->dflt;
    return byDefault != nullptr &&
           std::string_view(lyd_value_get_canonical(LYD_CTX(leaf), byDefault)) == lyd_get_value(leaf);
}

/// Leaves of one name are adjacent in a parsed edit.
bool IsTwin(const lyd_node* leaf)
{
    return leaf->prev->next != nullptr && leaf->prev->schema == leaf->schema;
}

}  // namespace

EditWrites::EditWrites(const SchemaTable& table, const std::vector<LeafWrite>& writes)
{
    for (const auto& write : writes) {
        // The callpoint was asked about the innermost entry that has one.
        std::size_t entryEnd = 0;
        Place entry;
        std::vector<std::string> keys;
        for (std::size_t i = 0; i < write.path.steps.size(); ++i) {
            const auto& step = write.path.steps[i];
            keys.insert(keys.end(), step.keys.begin(), step.keys.end());
            if (step.keys.empty() || table[step.node].callpoint.empty()) continue;
            entry = {step.node, keys};
            entryEnd = i + 1;
        }
        if (entryEnd == 0) continue;
        Write kept{{}, write.value};
        for (std::size_t i = entryEnd; i < write.path.steps.size(); ++i)
            kept.below.push_back({write.path.steps[i].node, write.path.steps[i].keys});
        m_writes[entry].push_back(std::move(kept));
    }
}

const std::vector<EditWrites::Write>& EditWrites::For(const Place& entry) const
{
    static const std::vector<Write> kNone;
    const auto it = m_writes.find(entry);
    return it == m_writes.end() ? kNone : it->second;
}

Editor::Editor(const Schema& schema, Candidate& candidate, EditLog& log, const EditWrites& writes,
               Depth depth, ErrorOption onError)
    : m_schema(schema),
      m_candidate(candidate),
      m_log(log),
      m_writes(writes),
      m_depth(depth),
      m_onError(onError),
      m_asksBelow(schema.Table().Size(), false)
{
    for (const auto& node : schema.Table().Nodes()) {
        if (node.callpoint.empty()) continue;
        for (NodeId above = node.parent; above != kNoNode; above = schema.Table()[above].parent)
            m_asksBelow[above] = true;
    }
}

std::optional<Error> Editor::Apply(const lyd_node* edit, DefaultOperation operation)
{
    if (operation != DefaultOperation::kReplace)
        return ApplySiblings(edit, InitialOperation(operation), nullptr);
    const std::size_t mark = m_log.Mark();
    // A replacing edit deletes what it does not mention.
    EmptyUnmentioned(edit);
    auto error = ApplyWhole(edit, InitialOperation(operation), nullptr);
    if (!error || m_onError == ErrorOption::kWhole) return error;
    m_log.RollBackTo(mark);
    NoteFailed(std::move(*error));
    return std::nullopt;
}

Editor::Result Editor::ApplySiblings(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    for (const lyd_node* node = edit; node != nullptr; node = node->next) {
        const std::size_t mark = m_log.Mark();
        auto error = ApplyNode(node, operation, parent);
        if (!error) continue;
        if (m_onError == ErrorOption::kWhole || m_whole > 0) return error;
        m_log.RollBackTo(mark);
        m_writtenByCallpoint.clear();  // some may be gone
        NoteFailed(std::move(*error));
    }
    return std::nullopt;
}

Editor::Result Editor::ApplyWhole(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    ++m_whole;
    auto error = ApplySiblings(edit, operation, parent);
    --m_whole;
    return error;
}

void Editor::NoteFailed(Error error)
{
    if (m_failed.size() < kMaxErrors)
        m_failed.push_back(std::move(error));
    else
        ++m_failedMore;
}

std::vector<Error> Editor::Failed() const
{
    std::vector<Error> errors = m_failed;
    if (m_failedMore > 0)
        errors.push_back({.tag = ErrorTag::kOperationFailed,
                          .message = std::to_string(m_failedMore) + " more parts of the edit have failed"});
    return errors;
}

Editor::Result Editor::ApplyNode(const lyd_node* edit, EditOp inherited, lyd_node* parent)
{
    if (edit->schema == nullptr) return ApplyOpaque(edit, inherited, parent);
    if ((edit->schema->flags & LYS_CONFIG_R) != 0) return NotConfiguration(edit);
    if (m_schema.IdOf(edit->schema) == kNoNode) return NotKept(edit);
    const auto own = OperationOf(edit, inherited);
    if (!own) return own.error();
    const EditOp operation = *own;
    if (lysc_is_key(edit->schema)) {
        if (IsTwin(edit)) return GivenTwice(edit);
        if (edit->meta != nullptr && (operation == EditOp::kDelete || operation == EditOp::kRemove))
            return KeyCannotGo(edit);
        return std::nullopt;
    }
    switch (edit->schema->nodetype) {
    case LYS_LEAF:
        return ApplyLeaf(edit, operation, parent);
    case LYS_LIST:
        return ApplyEntry(edit, operation, parent);
    default:
        return ApplyContainer(edit, operation, parent);
    }
}

Editor::Result Editor::ApplyOpaque(const lyd_node* edit, EditOp inherited, lyd_node* parent)
{
    const auto own = OperationOf(edit, inherited);
    if (!own) return own.error();
    const EditOp operation = *own;
    // A leaf to delete needs no value, so an empty one is no error even if its type does not accept that.
    const lysc_node* meant = MeantBy(m_schema, edit);
    const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(edit);
    const bool isEmpty = opaque->child == nullptr && (opaque->value == nullptr || *opaque->value == '\0');
    const bool deletes = operation == EditOp::kDelete || operation == EditOp::kRemove;
    if (meant == nullptr || meant->nodetype != LYS_LEAF || !isEmpty || !deletes || lysc_is_key(meant) ||
        m_schema.IdOf(meant) == kNoNode)
        return OpaqueError(m_schema, edit);
    lyd_node* present = FindSingle(SiblingsBelow(parent), meant);
    if (IsThere(present))
        Unset(present);
    else if (operation == EditOp::kDelete)
        return NothingToDelete(edit);
    return std::nullopt;
}

Editor::Result Editor::ApplyLeaf(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    if (IsTwin(edit)) return GivenTwice(edit);
    lyd_node* present = FindSingle(SiblingsBelow(parent), edit->schema);
    const bool isThere = IsThere(present);
    // Tagged as a default (RFC 6243, section 4.5.2): as if it were not set.
    const bool isTagged = !IsExplicit(edit);
    if (isTagged && !HasDefaultValue(edit)) return NotTheDefault(edit);
    switch (operation) {
    case EditOp::kCreate:
        if (isThere) return DataExists(edit);
        [[fallthrough]];
    case EditOp::kMerge:
    case EditOp::kReplace:
        if (!isTagged)
            Set(edit, present, parent);
        else if (isThere)
            Unset(present);
        return std::nullopt;
    case EditOp::kDelete:
        if (!isThere) return NothingToDelete(edit);
        [[fallthrough]];
    case EditOp::kRemove:
        if (isThere) Unset(present);
        return std::nullopt;
    case EditOp::kNone:
        break;
    }
    if (!isThere) return NothingThere(edit);
    return std::nullopt;
}

Editor::Result Editor::ApplyContainer(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    // A presence container is created and deleted like an entry without keys.
    if (IsPresence(edit->schema)) return ApplyEntry(edit, operation, parent);
    lyd_node* container = FindSingle(SiblingsBelow(parent), edit->schema);
    if (container == nullptr) {  // inside an entry that is being made
        container = MakeContainer(parent, edit->schema);
        m_log.Made(container);
    }
    const bool isTrunk = m_candidate.IsTrunk(container->schema);
    const bool isThere = isTrunk ? m_candidate.HasContent(container) : IsExplicit(container);
    switch (operation) {
    case EditOp::kCreate:
        if (isThere) return DataExists(edit);
        return ApplyWhole(lyd_child(edit), operation, container);
    case EditOp::kReplace:
        return ApplyWhole(lyd_child(edit), operation, Empty(container));
    case EditOp::kDelete:
        if (!isThere) return NothingToDelete(edit);
        [[fallthrough]];
    case EditOp::kRemove:
        Empty(container);
        return std::nullopt;
    case EditOp::kMerge:
    case EditOp::kNone:
        break;
    }
    return ApplySiblings(lyd_child(edit), operation, container);
}

Editor::Result Editor::ApplyEntry(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    const bool isThere = IsPresent(edit, parent);
    switch (operation) {
    case EditOp::kCreate:
        if (isThere) return DataExists(edit);
        return Create(edit, operation, parent);
    case EditOp::kReplace:
        if (isThere) TakeOutPresent(edit, parent);
        return Create(edit, operation, parent);
    case EditOp::kDelete:
        if (!isThere) return NothingToDelete(edit);
        [[fallthrough]];
    case EditOp::kRemove:
        if (isThere) TakeOutPresent(edit, parent);
        return std::nullopt;
    case EditOp::kMerge:
        if (!isThere) return Create(edit, operation, parent);
        break;
    case EditOp::kNone:
        if (!isThere) return NothingThere(edit);
        break;
    }
    return ApplySiblings(lyd_child(edit), operation, FindPresent(edit, parent));
}

}  // namespace cdb
