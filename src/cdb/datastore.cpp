// The operations on the datastores, each wired of its parts: editor, validator, comparison, store.

#include "cdb/datastore.h"

#include <libyang/libyang.h>
#include <malloc.h>

#include <algorithm>
#include <new>

#include "cdb/compare.h"
#include "cdb/edit.h"
#include "cdb/tree_load.h"
#include "cdb/tree_sync.h"
#include "cdb/validate.h"

namespace cdb {
namespace {

/// After so many changed rows the memory that came free is given back to the system: a load's
/// transient trees would stay in the process for ever.
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
        : schema(schemaArg), store(storeArg), validator(schemaArg), touched(schemaArg)
    {
        RequireOneRoot(schema.Table());
        store.SetSchema(schema.Table());
        running = LoadTree(schema, store.Read());
        if (const auto errors = validator.Everything(running.get()); !errors.empty())
            throw FatalError("the stored configuration is not valid by the YANG modules: " + TextOf(errors) +
                             "; start with the modules that it was written with, or restore another store");
        lyd_node* copy = nullptr;
        if (lyd_dup_siblings(running.get(), nullptr, LYD_DUP_RECURSIVE, &copy) != LY_SUCCESS)
            throw std::bad_alloc();
        candidate.reset(copy);
        malloc_trim(0);
    }

    [[nodiscard]] Difference Differ(WithUndo withUndo) const
    {
        return Compare(schema, running.get(), candidate.get(), touched, withUndo);
    }

    std::optional<Error> Write(const Difference& difference, const CommitInfo& info)
    {
        auto transaction = store.Begin();
        for (const auto& change : difference.rows) {
            if (change.row)
                transaction.Put(change.key, *change.row);
            else
                transaction.Erase(change.key);
        }
        HistoryEntry entry;
        entry.commit = store.LastCommit() + 1;
        entry.timeUs = info.timeUs;
        entry.user = info.user;
        entry.source = info.source;
        entry.comment = info.comment;
        entry.undo = difference.undo;
        transaction.Append(entry);
        return transaction.Commit();
    }

    /// The candidate has become running, or running has become the candidate.
    void Settle(lyd_node* tree, const lyd_node* model, std::size_t rows)
    {
        Synchronize(schema, tree, model, touched);
        touched.Clear();
        if (rows > kLargeChange) malloc_trim(0);
    }

    /// Sets the leaves that a callpoint would have written: those that another leaf's default refers to.
    void FillDefaults(const NewEntry& created, std::vector<std::string>& warnings)
    {
        RowKey key{created.path.Node(), {}};
        for (const auto& step : created.path.steps)
            key.keys.insert(key.keys.end(), step.keys.begin(), step.keys.end());
        lyd_node* entry = FindRow(schema, candidate.get(), key);
        if (entry == nullptr) return;
        const auto& table = schema.Table();
        for (const NodeId id : table[key.node].children) {
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
    Touched touched;
    TreePtr running;
    TreePtr candidate;
};

Datastore::Datastore(const Schema& schema, Store& store) : m_impl(std::make_unique<Impl>(schema, store)) {}

Datastore::~Datastore() = default;

const lyd_node* Datastore::Running() const { return m_impl->running.get(); }

const lyd_node* Datastore::Candidate() const { return m_impl->candidate.get(); }

std::vector<NewEntry> Datastore::EntriesToCreate(const lyd_node* edit, DefaultOperation operation) const
{
    EditLog log;
    const EditWrites none;
    Editor editor(m_impl->schema, m_impl->candidate.get(), nullptr, log, none);
    // An error comes again when the edit is applied; what was created before it may have to stay.
    static_cast<void>(editor.Apply(edit, operation));
    log.RollBack();
    return editor.Created();
}

std::optional<Error> Datastore::Edit(const lyd_node* edit, DefaultOperation operation, ErrorOption onError,
                                     const std::vector<LeafWrite>& writes)
{
    EditLog log;
    const EditWrites indexed(m_impl->schema.Table(), writes);
    Editor editor(m_impl->schema, m_impl->candidate.get(), &m_impl->touched, log, indexed);
    auto error = editor.Apply(edit, operation);
    if (error && onError == ErrorOption::kRollbackOnError)
        log.RollBack();
    else
        log.Keep();
    return error;
}

std::vector<Error> Datastore::EditAndTest(const lyd_node* edit, DefaultOperation operation,
                                          ErrorOption onError, TestOption test,
                                          const std::vector<LeafWrite>& writes)
{
    if (test == TestOption::kSet) {
        auto error = Edit(edit, operation, onError, writes);
        return error ? std::vector{std::move(*error)} : std::vector<Error>{};
    }
    EditLog log;
    const EditWrites indexed(m_impl->schema.Table(), writes);
    Editor editor(m_impl->schema, m_impl->candidate.get(), &m_impl->touched, log, indexed);
    std::vector<Error> errors;
    if (auto error = editor.Apply(edit, operation))
        errors.push_back(std::move(*error));
    else
        errors = Validate();
    if (errors.empty() && test == TestOption::kTestThenSet)
        log.Keep();
    else
        log.RollBack();
    return errors;
}

bool Datastore::Changed() const { return !m_impl->Differ(WithUndo::kNo).rows.empty(); }

std::vector<Error> Datastore::Validate()
{
    return m_impl->validator.Touched(m_impl->running.get(), m_impl->candidate.get(), m_impl->touched);
}

ChangeSet Datastore::Changes() const
{
    return {m_impl->store.LastCommit() + 1, m_impl->Differ(WithUndo::kNo).root};
}

std::variant<ChangeSet, std::vector<Error>> Datastore::Commit(const CommitInfo& info)
{
    if (auto errors = Validate(); !errors.empty()) return errors;
    auto difference = m_impl->Differ(WithUndo::kYes);
    if (difference.rows.empty()) {
        m_impl->Settle(m_impl->candidate.get(), m_impl->running.get(), 0);
        return ChangeSet{m_impl->store.LastCommit(), std::move(difference.root)};
    }
    if (auto error = m_impl->Write(difference, info)) return std::vector<Error>{std::move(*error)};
    m_impl->Settle(m_impl->running.get(), m_impl->candidate.get(), difference.rows.size());
    return ChangeSet{m_impl->store.LastCommit(), std::move(difference.root)};
}

void Datastore::Discard() { m_impl->Settle(m_impl->candidate.get(), m_impl->running.get(), 0); }

std::vector<Error> Datastore::Initialize(const lyd_node* content, const CommitInfo& info,
                                         std::vector<std::string>& warnings)
{
    EditLog log;
    const EditWrites none;
    Editor editor(m_impl->schema, m_impl->candidate.get(), &m_impl->touched, log, none);
    if (auto error = editor.Apply(content, DefaultOperation::kMerge)) {
        log.RollBack();
        return {std::move(*error)};
    }
    log.Keep();
    for (const auto& created : editor.Created()) m_impl->FillDefaults(created, warnings);
    auto result = Commit(info);
    if (auto* errors = std::get_if<std::vector<Error>>(&result)) {
        Discard();
        return std::move(*errors);
    }
    return {};
}

}  // namespace cdb
