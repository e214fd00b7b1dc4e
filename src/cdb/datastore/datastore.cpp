// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/datastore.h"

#include <libyang/libyang.h>

#include "cdb/datastore/candidate_view.h"
#include "cdb/datastore/edit.h"
#include "cdb/datastore/tree_load.h"
#include "cdb/schema/difference.h"
#include "log/log.h"

namespace cdb {
namespace {

/// With more dirty units than this, the old tree is kept for TidyUp, since freeing it takes long.
constexpr std::size_t kLargeChange = 1000;

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

/// The record that a commit leaves. `last`: the last commit then.
std::optional<PendingCommit> PendingAfter(const CommitInfo& info, std::uint64_t last)
{
    auto pending = info.pending;
    if (pending) pending->last = last;
    return pending;
}

const Schema& Checked(const Schema& schema)
{
    RequireOneRoot(schema.Table());
    return schema;
}

}  // namespace

Datastore::Datastore(const Schema& schema, Store& store, std::size_t keptRows)
    : m_schema(Checked(schema)),
      m_store(store),
      m_validator(schema),
      m_kept(std::make_shared<KeptRows>()),
      m_candidate(TakeOver(), store, m_kept)
{
    m_kept->most = keptRows;
}

Datastore::Datastore(const Schema& schema, Store& store, const Validator& validator, KeptRowsPtr kept)
    : m_schema(schema),
      m_store(store),
      m_validator(validator),
      m_kept(std::move(kept)),
      m_candidate(schema, store, m_kept),
      m_follows(false)
{
}

const Schema& Datastore::TakeOver()
{
    const SchemaTable before = m_store.Schema();
    const std::string fingerprint = m_store.SchemaFingerprint();
    if (fingerprint == m_schema.Fingerprint() && before == m_schema.Table()) return m_schema;
    const auto changes = DifferenceOf(before, m_schema.Table());
    m_store.SetSchema(m_schema.Table());
    try {
        CheckRows();
    } catch (const FatalError& error) {
        m_store.SetSchema(before, fingerprint);
        const std::string obstacle = Obstacle(changes);
        throw FatalError(error.what() + (obstacle.empty() ? std::string() : " (" + obstacle + ")"));
    }
    m_store.SetSchema(m_schema.Table(), m_schema.Fingerprint());
    if (!m_store.Empty())
        for (const SchemaChange& line : changes)
            slog::Notice("the YANG modules have changed: {}", Describe(line));
    return m_schema;
}

void Datastore::CheckRows()
{
    const auto rows = MakeRowView(m_store);
    const TreePtr tree = LoadTree(m_schema, *rows);
    if (const auto errors = m_validator.Everything(tree.get(), *rows); !errors.empty())
        throw FatalError("the stored configuration is not valid by the YANG modules: " + TextOf(errors) +
                         "; start with the modules that it was written with, or restore another store");
}

std::optional<Error> Datastore::Write(Difference& difference, const CommitInfo& info)
{
    auto transaction = m_store.Begin(m_candidate.Base());
    HistoryEntry entry;
    entry.undoRows.reserve(difference.rows.size());
    for (auto& change : difference.rows) {
        entry.undoRows.push_back({m_store.StoredKey(change.key), std::move(change.before)});
        if (change.now)
            transaction.Put(change.key, *change.now);
        else
            transaction.Erase(change.key);
    }
    entry.commit = m_candidate.Base() + 1;
    entry.timeUs = info.timeUs;
    entry.user = info.user;
    entry.source = info.source;
    entry.comment = info.comment;
    entry.changes = static_cast<std::uint32_t>(difference.rows.size());
    transaction.Append(entry);
    transaction.SetPending(PendingAfter(info, entry.commit));
    return transaction.Commit();
}

std::optional<Error> Datastore::NotePending(const CommitInfo& info)
{
    const auto pending = PendingAfter(info, m_store.LastCommit());
    return pending == m_store.Pending() ? std::nullopt : m_store.SetPending(pending);
}

void Datastore::Settle()
{
    const std::size_t units = m_candidate.Dirty().size();
    Free(m_candidate.Reset(), units);
    m_isVerified = true;
}

void Datastore::Free(TreePtr tree, std::size_t units)
{
    if (units > kLargeChange) m_garbage.push_back(std::move(tree));
}

void Datastore::FillDefaults(const NewEntry& created, std::vector<std::string>& warnings)
{
    lyd_node* entry = m_candidate.Find({created.path.Node(), created.path.steps.back().keys});
    if (entry == nullptr) return;
    const auto& table = m_schema.Table();
    for (const NodeId id : table[created.path.Node()].children) {
        const NodeId referred = table[id].defaultRef;
        if (referred == kNoNode) continue;
        lyd_node* leaf = FindSingle(lyd_child(entry), m_schema.NodeOf(referred));
        if (leaf == nullptr || IsExplicit(leaf)) continue;
        leaf->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
        warnings.push_back(Describe(entry) + " has no " + table[referred].name + ", and the callpoint " +
                           created.callpoint + " is not asked here: " + lyd_get_value(leaf) +
                           ", the default of the YANG module, is used");
    }
}

std::unique_ptr<RowView> Datastore::Running() const { return MakeRowView(m_store); }

std::unique_ptr<RowView> Datastore::Candidate() const
{
    return std::make_unique<CandidateView>(m_schema, m_candidate);
}

std::set<Place> Datastore::UnitsOfCandidate() const
{
    std::set<Place> units;
    for (const auto& [place, unit] : m_candidate.Dirty()) units.insert(units.end(), place);
    return units;
}

std::unique_ptr<RowView> Datastore::DirtyRows(Which which) const
{
    return std::make_unique<UnitsView>(
        m_candidate, UnitsOfCandidate(),
        which == Which::kRunning ? std::make_unique<BaseView>(m_candidate) : Candidate());
}

std::vector<NewEntry> Datastore::EntriesToCreate(const lyd_node* edit, DefaultOperation operation,
                                                 ErrorOption onError)
{
    const cdb::Candidate::Reading reading(m_candidate);
    return PlanCreations(m_schema, m_candidate, edit, operation, onError);
}

std::optional<Error> Datastore::Edit(const lyd_node* edit, DefaultOperation operation,
                                     const std::vector<LeafWrite>& writes)
{
    auto errors = EditAndTest(edit, operation, TestOption::kSet, writes);
    if (errors.empty()) return std::nullopt;
    return std::move(errors.front());
}

std::vector<Error> Datastore::EditAndTest(const lyd_node* edit, DefaultOperation operation, TestOption test,
                                          const std::vector<LeafWrite>& writes, ErrorOption onError)
{
    const cdb::Candidate::Reading reading(m_candidate);
    EditLog log(m_candidate);
    const EditWrites indexed(m_schema.Table(), writes);
    Editor editor(m_schema, m_candidate, log, indexed, Editor::Depth::kAll, onError);
    std::vector<Error> errors;
    if (auto error = editor.Apply(edit, operation))
        errors.push_back(std::move(*error));
    else if (test != TestOption::kSet)
        errors = m_validator.Check(m_candidate);
    const bool stands = errors.empty() && test != TestOption::kTestOnly;
    const std::vector<Error> failed = editor.Failed();
    errors.insert(errors.begin(), failed.begin(), failed.end());
    if (!stands) {
        log.RollBack();
        return errors;
    }
    m_isVerified = test == TestOption::kTestThenSet;
    log.Keep();
    return errors;
}

bool Datastore::Changed() const
{
    const cdb::Candidate::Reading reading(m_candidate);
    return Differs(m_schema, m_candidate);
}

std::vector<Error> Datastore::Check()
{
    if (m_isVerified) return {};
    const cdb::Candidate::Reading reading(m_candidate);
    auto errors = m_validator.Check(m_candidate);
    m_isVerified = errors.empty();
    return errors;
}

std::vector<Error> Datastore::ValidateOther(const lyd_node* content) const
{
    cdb::Candidate other(m_schema, m_store);
    const cdb::Candidate::Reading reading(other);
    EditLog log(other);
    const EditWrites none;
    Editor editor(m_schema, other, log, none);
    if (auto error = editor.Apply(content, DefaultOperation::kReplace)) return {std::move(*error)};
    return m_validator.Check(other);
}

ChangeSet Datastore::Changes() const
{
    const cdb::Candidate::Reading reading(m_candidate);
    return {m_candidate.Base() + 1, Compare(m_schema, m_candidate).root};
}

std::vector<RowChange> Datastore::ChangedRows() const
{
    const cdb::Candidate::Reading reading(m_candidate);
    return Compare(m_schema, m_candidate).rows;
}

base::expected<Committed, std::vector<Error>> Datastore::Commit(const CommitInfo& info)
{
    std::optional<Before> before;
    auto errors = CarryOver(OnConflict::kRefuse, before);
    if (errors.empty()) errors = CheckCarriedOver(before);
    Difference difference;
    if (errors.empty()) {
        const cdb::Candidate::Reading reading(m_candidate);
        difference = Compare(m_schema, m_candidate);
    }
    if (errors.empty())
        if (auto error = difference.rows.empty() ? NotePending(info) : Write(difference, info))
            errors.push_back(std::move(*error));
    if (!errors.empty()) {
        PutBack(std::move(before));
        return base::Unexpected(std::move(errors));
    }
    if (before) Free(std::move(before->state.tree), before->state.units.size());
    Settle();
    return Committed{{m_candidate.Base(), std::move(difference.root)}, difference.rows.size()};
}

void Datastore::Discard() { Settle(); }

void Datastore::TidyUp() { m_garbage.clear(); }

std::vector<Error> Datastore::Initialize(const lyd_node* content, const CommitInfo& info,
                                         std::vector<std::string>& warnings)
{
    {
        const cdb::Candidate::Reading reading(m_candidate);
        EditLog log(m_candidate);
        const EditWrites none;
        Editor editor(m_schema, m_candidate, log, none);
        m_isVerified = false;
        if (auto error = editor.Apply(content, DefaultOperation::kMerge)) {
            log.RollBack();
            return {std::move(*error)};
        }
        log.Keep();
        for (const auto& created : editor.Created()) FillDefaults(created, warnings);
    }
    auto result = Commit(info);
    if (result) return {};
    Discard();
    return std::move(result.error());
}

}  // namespace cdb
