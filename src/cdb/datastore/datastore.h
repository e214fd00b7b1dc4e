// SPDX-License-Identifier: Apache-2.0
// The running and candidate datastores. Running is the store's content; the candidate is running and, in
// memory, the units that edits have changed since. Every operation costs in proportion to what it touches,
// not to the configuration. Knows no session and no lock. Functions are for one thread at a time, except
// Running, which any thread may call at any time. Functions that read the store throw FatalError if it can't
// be read.

#ifndef CDB_DATASTORE_DATASTORE_H
#define CDB_DATASTORE_DATASTORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/expected.h"
#include "cdb/datastore/candidate.h"
#include "cdb/datastore/compare.h"
#include "cdb/datastore/edit_operation.h"
#include "cdb/datastore/tree.h"
#include "cdb/datastore/validate.h"
#include "cdb/model/change_set.h"
#include "cdb/model/error.h"
#include "cdb/model/row.h"
#include "cdb/rows/row_view.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

struct lyd_node;

namespace cdb {

struct CommitInfo {
    std::string user{};
    std::string source{};
    std::string comment{};
    std::int64_t timeUs = 0;
};

class Datastore {
public:
    /// Throws FatalError if the store was written with other modules and its rows can't be read by these
    /// (naming the row) or are not valid. `schema` and `store` must outlive it.
    Datastore(const Schema& schema, Store& store);
    Datastore(const Datastore&) = delete;
    Datastore& operator=(const Datastore&) = delete;

    /// The rows as they are now. The candidate's are valid until its next change.
    [[nodiscard]] std::unique_ptr<RowView> Running() const;
    [[nodiscard]] std::unique_ptr<RowView> Candidate() const;

    /// The rows, but of outermost lists only the entries in which the candidate may differ from running.
    /// Valid until the candidate's next change.
    enum class Which : std::uint8_t { kRunning, kCandidate };
    [[nodiscard]] std::unique_ptr<RowView> DirtyRows(Which which) const;

    /// The entries of lists with a callpoint that the edit would create, in the edit's order. `edit` is the
    /// parsed content of <config> (first sibling), with the nc:operation attributes as metadata (or, on
    /// opaque nodes, as attributes); it is not changed.
    [[nodiscard]] std::vector<NewEntry> EntriesToCreate(const lyd_node* edit, DefaultOperation operation,
                                                        ErrorOption onError = ErrorOption::kWhole);

    /// Applies the edit to the candidate, the callpoints' writes just before the edit's own leaves of the
    /// entry concerned. On an error the candidate is as before. A write to an entry that the edit does not
    /// create is dropped.
    [[nodiscard]] std::optional<Error> Edit(const lyd_node* edit, DefaultOperation operation,
                                            const std::vector<LeafWrite>& writes);

    /// Edits and tests. kSet: only edits. kTestThenSet: validates afterwards and undoes the edit if the
    /// candidate is not valid. kTestOnly: the same, but always undoes the edit. Returns the edit's error or
    /// those of the validation; empty if there is none. With ErrorOption::kContinue what could be done stands
    /// though errors are returned, unless the candidate would then not be valid by a test.
    [[nodiscard]] std::vector<Error> EditAndTest(const lyd_node* edit, DefaultOperation operation,
                                                 TestOption test, const std::vector<LeafWrite>& writes,
                                                 ErrorOption onError = ErrorOption::kWhole);

    /// Whether the candidate differs from running (looks only at the dirty set).
    [[nodiscard]] bool Changed() const;

    /// The candidate's errors, checked in the dirty set and what refers to it. Empty if it is valid.
    [[nodiscard]] std::vector<Error> Validate();

    /// The errors of another configuration, as a whole. `content` as `edit` above, without operations. Asks
    /// no callpoint. Does not look at the candidate, so any thread may call it at any time.
    [[nodiscard]] std::vector<Error> ValidateOther(const lyd_node* content) const;

    /// The change set of a commit now, with the number that it would get.
    [[nodiscard]] ChangeSet Changes() const;

    /// The rows that a commit now would change, parents before their children.
    [[nodiscard]] std::vector<RowChange> ChangedRows() const;

    /// Makes the candidate running: validates, writes the store, then changes running. Returns the change
    /// set, or the errors, with running and candidate as before. An empty change set has nothing for
    /// subscribers; rows were written only if a default was made explicit, or the reverse.
    [[nodiscard]] base::expected<ChangeSet, std::vector<Error>> Commit(const CommitInfo& info);

    /// Makes the candidate equal to running.
    void Discard();

    /// Undoes a commit in the candidate: the rows that it changed are as they were before it. Asks no
    /// callpoint. `entry` must have its undo (Store::HistoryUndo). On an error the candidate is as before.
    [[nodiscard]] std::optional<Error> Undo(const HistoryEntry& entry);

    /// Frees the memory of earlier commits and discards, which may take long: call it when no answer is
    /// awaited.
    void TidyUp();

    /// Loads a first configuration into the candidate and commits it, without asking callpoints. `warnings`
    /// gets one text for each leaf whose YANG default replaces a callpoint's write. On an error running is as
    /// before.
    [[nodiscard]] std::vector<Error> Initialize(const lyd_node* content, const CommitInfo& info,
                                                std::vector<std::string>& warnings);

private:
    /// Checks that rows which were written with other modules fit these.
    const Schema& TakeOver();
    void CheckRows();
    std::optional<Error> Write(Difference& difference, const CommitInfo& info);
    /// Makes the candidate equal to running.
    void Settle();
    /// Makes explicit the leaves that a callpoint would have written: those that another leaf's default
    /// refers to.
    void FillDefaults(const NewEntry& created, std::vector<std::string>& warnings);

    const Schema& m_schema;
    Store& m_store;
    const Validator m_validator;
    cdb::Candidate m_candidate;
    bool m_isVerified = true;  // the current candidate was validated
    std::vector<TreePtr> m_garbage;
};

}  // namespace cdb

#endif
