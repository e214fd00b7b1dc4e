// SPDX-License-Identifier: Apache-2.0
// The operations on the datastores, made of the editor, the validator, the comparison and the store.

#include "cdb/datastore/datastore.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <new>

#include "cdb/datastore/candidate_view.h"
#include "cdb/datastore/compare.h"
#include "cdb/datastore/edit.h"
#include "cdb/datastore/edit_plan.h"
#include "cdb/datastore/tree_load.h"
#include "cdb/datastore/validate.h"
#include "cdb/schema/difference.h"
#include "log/log.h"

namespace cdb {
namespace {

/// With more dirty units than this, the old tree is kept for TidyUp, since freeing it takes long.
constexpr std::size_t kLargeChange = 1000;

std::string TextOf(const std::vector<Error>& errors)
{
    std::string text;
    for (const auto& error : errors) text += (text.empty() ? "" : "; ") + error.message;
    return text;
}

void RequireOneRoot(const SchemaTable& table)
{
    std::string roots;
    std::size_t count = 0;
    for (const auto& node : table.Nodes()) {
        if (node.parent != kNoNode) continue;
        roots += ' ' + node.name;
        ++count;
    }
    if (count != 1)
        throw FatalError("the YANG modules have " + std::to_string(count) +
                         " top-level configuration nodes, not one:" + roots + "; augment the one there is");
}

}  // namespace

class Datastore::Impl {
public:
    Impl(const Schema& schemaArg, Store& storeArg)
        : schema(Checked(schemaArg)), store(storeArg), validator(schemaArg), candidate(TakeOver(), storeArg)
    {
    }

    std::optional<Error> Write(Difference& difference, const CommitInfo& info)
    {
        auto transaction = store.Begin(candidate.Base());
        HistoryEntry entry;
        entry.undoRows.reserve(difference.rows.size());
        for (auto& change : difference.rows) {
            entry.undoRows.push_back({store.StoredKey(change.key), std::move(change.before)});
            if (change.now)
                transaction.Put(change.key, *change.now);
            else
                transaction.Erase(change.key);
        }
        entry.commit = candidate.Base() + 1;
        entry.timeUs = info.timeUs;
        entry.user = info.user;
        entry.source = info.source;
        entry.comment = info.comment;
        transaction.Append(entry);
        return transaction.Commit();
    }

    /// Makes the candidate equal to running.
    void Settle()
    {
        const bool isLarge = candidate.Dirty().size() > kLargeChange;
        TreePtr before = candidate.Reset();
        isVerified = true;
        if (isLarge) garbage.push_back(std::move(before));
    }

    /// Makes explicit the leaves that a callpoint would have written: those that another leaf's default
    /// refers to.
    void FillDefaults(const NewEntry& created, std::vector<std::string>& warnings)
    {
        lyd_node* entry = candidate.Find({created.path.Node(), created.path.steps.back().keys});
        if (entry == nullptr) return;
        const auto& table = schema.Table();
        for (const NodeId id : table[created.path.Node()].children) {
            const NodeId referred = table[id].defaultRef;
            if (referred == kNoNode) continue;
            lyd_node* leaf = FindSingle(lyd_child(entry), schema.NodeOf(referred));
            if (leaf == nullptr || IsExplicit(leaf)) continue;
            leaf->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
            warnings.push_back(Describe(entry) + " has no " + table[referred].name + ", and the callpoint " +
                               created.callpoint + " is not asked here: " + lyd_get_value(leaf) +
                               ", the default of the YANG module, is used");
        }
    }

    const Schema& schema;
    Store& store;
    Validator validator;
    cdb::Candidate candidate;
    bool isVerified = true;  // the current candidate was validated
    std::vector<TreePtr> garbage;

private:
    static const Schema& Checked(const Schema& schema)
    {
        RequireOneRoot(schema.Table());
        return schema;
    }

    /// Checks that rows which were written with other modules fit these.
    const Schema& TakeOver()
    {
        const SchemaTable before = store.Schema();
        const std::string fingerprint = store.SchemaFingerprint();
        if (fingerprint == schema.Fingerprint() && before == schema.Table()) return schema;
        const auto changes = DifferenceOf(before, schema.Table());
        store.SetSchema(schema.Table());
        try {
            CheckRows();
        } catch (const FatalError& error) {
            store.SetSchema(before, fingerprint);
            const std::string obstacle = Obstacle(changes);
            throw FatalError(error.what() + (obstacle.empty() ? std::string() : " (" + obstacle + ")"));
        }
        store.SetSchema(schema.Table(), schema.Fingerprint());
        if (!store.Empty())
            for (const SchemaChange& line : changes)
                slog::Notice("the YANG modules have changed: {}", Describe(line));
        return schema;
    }

    void CheckRows()
    {
        const auto rows = MakeRowView(store);
        const TreePtr tree = LoadTree(schema, *rows);
        if (const auto errors = validator.Everything(tree.get(), *rows); !errors.empty())
            throw FatalError("the stored configuration is not valid by the YANG modules: " + TextOf(errors) +
                             "; start with the modules that it was written with, or restore another store");
    }
};

Datastore::Datastore(const Schema& schema, Store& store) : m_impl(std::make_unique<Impl>(schema, store)) {}

Datastore::~Datastore() = default;

std::unique_ptr<RowView> Datastore::Running() const { return MakeRowView(m_impl->store); }

std::unique_ptr<RowView> Datastore::Candidate() const
{
    return std::make_unique<CandidateView>(m_impl->schema, m_impl->candidate);
}

std::unique_ptr<RowView> Datastore::DirtyRows(Which which) const
{
    return std::make_unique<DirtyView>(m_impl->candidate, which == Which::kRunning ? Running() : Candidate());
}

std::vector<NewEntry> Datastore::EntriesToCreate(const lyd_node* edit, DefaultOperation operation) const
{
    const cdb::Candidate::Reading reading(m_impl->candidate);
    return PlanCreations(m_impl->schema, m_impl->candidate, edit, operation);
}

std::optional<Error> Datastore::Edit(const lyd_node* edit, DefaultOperation operation,
                                     const std::vector<LeafWrite>& writes)
{
    const cdb::Candidate::Reading reading(m_impl->candidate);
    EditLog log(m_impl->candidate);
    const EditWrites indexed(m_impl->schema.Table(), writes);
    Editor editor(m_impl->schema, m_impl->candidate, log, indexed);
    auto error = editor.Apply(edit, operation);
    if (error) {
        log.RollBack();
        return error;
    }
    m_impl->isVerified = false;
    log.Keep();
    return std::nullopt;
}

std::vector<Error> Datastore::EditAndTest(const lyd_node* edit, DefaultOperation operation, TestOption test,
                                          const std::vector<LeafWrite>& writes)
{
    if (test == TestOption::kSet) {
        auto error = Edit(edit, operation, writes);
        return error ? std::vector{std::move(*error)} : std::vector<Error>{};
    }
    const cdb::Candidate::Reading reading(m_impl->candidate);
    EditLog log(m_impl->candidate);
    const EditWrites indexed(m_impl->schema.Table(), writes);
    Editor editor(m_impl->schema, m_impl->candidate, log, indexed);
    std::vector<Error> errors;
    if (auto error = editor.Apply(edit, operation))
        errors.push_back(std::move(*error));
    else
        errors = m_impl->validator.Check(m_impl->candidate);
    if (errors.empty() && test == TestOption::kTestThenSet) {
        m_impl->isVerified = true;
        log.Keep();
    } else {
        log.RollBack();
    }
    return errors;
}

bool Datastore::Changed() const
{
    const cdb::Candidate::Reading reading(m_impl->candidate);
    return Differs(m_impl->schema, m_impl->candidate);
}

std::vector<Error> Datastore::Validate()
{
    if (m_impl->isVerified) return {};
    const cdb::Candidate::Reading reading(m_impl->candidate);
    auto errors = m_impl->validator.Check(m_impl->candidate);
    m_impl->isVerified = errors.empty();
    return errors;
}

ChangeSet Datastore::Changes() const
{
    const cdb::Candidate::Reading reading(m_impl->candidate);
    return {m_impl->candidate.Base() + 1, Compare(m_impl->schema, m_impl->candidate).root};
}

std::vector<RowChange> Datastore::ChangedRows() const
{
    const cdb::Candidate::Reading reading(m_impl->candidate);
    return Compare(m_impl->schema, m_impl->candidate).rows;
}

std::variant<ChangeSet, std::vector<Error>> Datastore::Commit(const CommitInfo& info)
{
    if (auto errors = Validate(); !errors.empty()) return errors;
    Difference difference;
    {
        const cdb::Candidate::Reading reading(m_impl->candidate);
        difference = Compare(m_impl->schema, m_impl->candidate);
    }
    if (!difference.rows.empty())
        if (auto error = m_impl->Write(difference, info)) return std::vector<Error>{std::move(*error)};
    m_impl->Settle();
    return ChangeSet{m_impl->candidate.Base(), std::move(difference.root)};
}

void Datastore::Discard() { m_impl->Settle(); }

std::optional<Error> Datastore::Undo(const HistoryEntry& entry)
{
    m_impl->isVerified = false;
    if (!entry.undo.empty()) {  // of an older version: an edit
        lyd_node* parsed = nullptr;
        const auto result = lyd_parse_data_mem(m_impl->schema.Context(), entry.undo.c_str(), LYD_XML,
                                               LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &parsed);
        const TreePtr edit(parsed);
        if (result == LY_SUCCESS) return Edit(edit.get(), DefaultOperation::kMerge, {});
        return Error{.tag = ErrorTag::kOperationFailed,
                     .message = "what undoes commit " + std::to_string(entry.commit) +
                                " does not fit the YANG modules: " + LastMessage(m_impl->schema.Context())};
    }
    RowPatch rows;
    for (const auto& each : entry.undoRows) {
        auto key = m_impl->store.RowKeyOf(each.key);
        if (!key) continue;  // the schema no longer has the node
        rows.emplace(std::pair(key->node, std::move(key->keys)), each.row);
    }
    CandidateView now(m_impl->schema, m_impl->candidate);
    m_impl->candidate.Patch(now, rows);
    return std::nullopt;
}

void Datastore::TidyUp() { m_impl->garbage.clear(); }

std::vector<Error> Datastore::Initialize(const lyd_node* content, const CommitInfo& info,
                                         std::vector<std::string>& warnings)
{
    {
        const cdb::Candidate::Reading reading(m_impl->candidate);
        EditLog log(m_impl->candidate);
        const EditWrites none;
        Editor editor(m_impl->schema, m_impl->candidate, log, none);
        m_impl->isVerified = false;
        if (auto error = editor.Apply(content, DefaultOperation::kMerge)) {
            log.RollBack();
            return {std::move(*error)};
        }
        log.Keep();
        for (const auto& created : editor.Created()) m_impl->FillDefaults(created, warnings);
    }
    auto result = Commit(info);
    if (auto* errors = std::get_if<std::vector<Error>>(&result)) {
        Discard();
        return std::move(*errors);
    }
    return {};
}

}  // namespace cdb
