// SPDX-License-Identifier: Apache-2.0
// The running and candidate datastores. Running is the store's content; the candidate is running as of one
// commit, its base, and, in memory, the units that edits have changed since. There may be several of these
// objects on one store, each with a candidate of its own; a commit of one leaves the others' candidates as
// they are, and carries its own changes over where running has moved on from its base. Every operation costs
// in proportion to what it touches, not to the configuration. Knows no session and no lock. Functions are for
// one thread at a time, except Running, which any thread may call at any time. Functions that read the store
// throw FatalError if it can't be read.

#ifndef CDB_DATASTORE_DATASTORE_H
#define CDB_DATASTORE_DATASTORE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
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
    /// The confirmed commit that waits after this one; `last` is set by the datastore. Nullopt: none waits,
    /// so this commit confirms, takes back or replaces the one that did.
    std::optional<PendingCommit> pending{};
};

/// What a commit has made.
struct Committed {
    ChangeSet changes;
    /// How many rows it has changed: entries of lists and containers. 0: there was nothing to commit, and no
    /// commit was made. May not be 0 where `changes` is empty.
    std::size_t rows = 0;
};

/// A commit of the past, by one of three names. The configuration meant is the one after it.
struct Moment {
    std::optional<std::uint64_t> back{};    // how many commits back; 0: the last one
    std::optional<std::uint64_t> commit{};  // its number; 0: before the first one
    std::string checkpoint{};
};

class Datastore {
public:
    /// Throws FatalError if the store was written with other modules and its rows can't be read by these
    /// (naming the row) or are not valid. `schema` and `store` must outlive it. `keptRows`: how many rows of
    /// other commits it and its forks keep together, of those that have many.
    Datastore(const Schema& schema, Store& store, std::size_t keptRows = KeptRows::kMost);
    Datastore(const Datastore&) = delete;
    Datastore& operator=(const Datastore&) = delete;

    /// Another one on the same store, whose candidate begins as running is now. Nothing is copied. The same
    /// thread has to use both, this one has to outlive it.
    [[nodiscard]] std::unique_ptr<Datastore> Fork() const;

    /// To be called before a request is worked on: makes sure that the candidate's base can be had. Then
    /// nothing below throws for lack of it. `mayMove`: a candidate without changes begins anew with running
    /// as it is now, but not one of Fork. The error, if what undoes a commit after the base is not kept,
    /// names the remedy.
    [[nodiscard]] std::optional<Error> Prepare(bool mayMove);

    /// The number of the commit that the candidate began with.
    [[nodiscard]] std::uint64_t Base() const { return m_candidate.Base(); }

    /// Makes running as it is now the candidate's base, and carries the candidate's changes over. What others
    /// have changed differently since the old base is in conflict: by kRefuse that is an error, and the
    /// candidate is as before; by kTakeRunning the candidate's changes are gone there, and the result names
    /// them. Does not validate.
    enum class OnConflict : std::uint8_t { kRefuse, kTakeRunning };
    [[nodiscard]] base::expected<std::vector<Error>, std::vector<Error>> Update(OnConflict onConflict);

    /// The rows as they are now. The candidate's are valid until its next change.
    [[nodiscard]] std::unique_ptr<RowView> Running() const;
    [[nodiscard]] std::unique_ptr<RowView> Candidate() const;

    /// The rows, but of outermost lists only the entries in which the candidate may differ from running,
    /// which is here as of the candidate's base: what the two differ in is what this candidate would commit.
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

    /// The errors that a commit would have: the candidate's, carried over to running as it is now, checked in
    /// the dirty set and what refers to it. Empty if it is valid. The candidate stays as it is.
    [[nodiscard]] std::vector<Error> Validate();

    /// The errors of another configuration, as a whole. `content` as `edit` above, without operations. Asks
    /// no callpoint. Does not look at the candidate, so any thread may call it at any time.
    [[nodiscard]] std::vector<Error> ValidateOther(const lyd_node* content) const;

    /// The change set of a commit now, with the number that it would get, as seen from the base.
    [[nodiscard]] ChangeSet Changes() const;

    /// The rows that the candidate changes of its base, parents before their children: a commit changes
    /// these, or fewer where running has the change already.
    [[nodiscard]] std::vector<RowChange> ChangedRows() const;

    /// Makes the candidate running: carries it over to running as it is now, validates, writes the store,
    /// then changes running. On errors, those of Update among them, running and candidate are as before. An
    /// empty change set has nothing for subscribers; rows were written then only if a default was made
    /// explicit, or the reverse.
    [[nodiscard]] base::expected<Committed, std::vector<Error>> Commit(const CommitInfo& info);

    /// Makes the candidate equal to running.
    void Discard();

    // datastore_history.cpp

    /// The commit that the moment names. kInvalidValue if there are not so many, kDataMissing if there is no
    /// such checkpoint.
    [[nodiscard]] base::expected<std::uint64_t, Error> CommitOf(const Moment& moment) const;

    /// May refuse the rows that a roll-back would make other than running's.
    using Permit = std::function<std::optional<Error>(const std::vector<RowChange>& changes)>;

    /// Makes the candidate what running was after the moment's commit: values as they were stored, no
    /// callpoint asked, everything that was edited gone. Empty if it has; else the errors (those of CommitOf,
    /// RowsAfter and Validate, and the one of `permit`), and the candidate is as before.
    [[nodiscard]] std::vector<Error> RollBack(const Moment& moment, const Permit& permit = {});

    /// Makes running what it was after the commit of that number, by a commit of its own, without a question
    /// to callpoints. What was edited and not committed stays in the candidate, with the base that it had.
    /// Returns what Commit does; the errors are those of RollBack and Commit, and running and candidate are
    /// then as before. Not to be called between an edit's plan and the edit.
    [[nodiscard]] base::expected<Committed, std::vector<Error>> Restore(std::uint64_t commit,
                                                                        const CommitInfo& info);

    /// Two configurations, of outermost lists only the entries in which they may differ. Valid until the
    /// candidate's next change.
    struct Comparison {
        std::unique_ptr<RowView> before;
        std::unique_ptr<RowView> after;
    };
    /// Running after the moment's commit, and the candidate.
    [[nodiscard]] base::expected<Comparison, Error> CompareWith(const Moment& moment) const;
    /// Running before and after the commit.
    [[nodiscard]] base::expected<Comparison, Error> ChangesOf(std::uint64_t commit) const;

    /// Frees the memory of earlier commits and discards, which may take long: call it when no answer is
    /// awaited.
    void TidyUp();

    /// Loads a first configuration into the candidate and commits it, without asking callpoints. `warnings`
    /// gets one text for each leaf whose YANG default replaces a callpoint's write. On an error running is as
    /// before.
    [[nodiscard]] std::vector<Error> Initialize(const lyd_node* content, const CommitInfo& info,
                                                std::vector<std::string>& warnings);

private:
    /// Of Fork.
    Datastore(const Schema& schema, Store& store, const Validator& validator, KeptRowsPtr kept);

    /// The candidate as it was before it was carried over.
    struct Before {
        cdb::Candidate::State state;
        bool isVerified = false;
    };
    /// Carries the candidate over to running as it is now. `before` gets what PutBack needs; nullopt if
    /// nothing was done. Returns the conflicts, or why nothing can be carried over; unless `before` is there,
    /// the candidate is as before.
    std::vector<Error> CarryOver(OnConflict onConflict, std::optional<Before>& before);
    void PutBack(std::optional<Before> before);
    /// Validates the candidate as it is.
    std::vector<Error> Check();
    /// The same after CarryOver: the errors say that running has moved on.
    std::vector<Error> CheckCarriedOver(const std::optional<Before>& before);

    /// Checks that rows which were written with other modules fit these.
    const Schema& TakeOver();
    void CheckRows();
    std::optional<Error> Write(Difference& difference, const CommitInfo& info);
    /// The record of the confirmed commit that waits, for a commit that changes no row.
    std::optional<Error> NotePending(const CommitInfo& info);
    /// Makes the candidate equal to running.
    void Settle();
    /// Frees the tree, a large one in TidyUp.
    void Free(TreePtr tree, std::size_t units);
    [[nodiscard]] std::set<Place> UnitsOfCandidate() const;
    /// Makes explicit the leaves that a callpoint would have written: those that another leaf's default
    /// refers to.
    void FillDefaults(const NewEntry& created, std::vector<std::string>& warnings);

    const Schema& m_schema;
    Store& m_store;
    const Validator m_validator;
    const KeptRowsPtr m_kept;
    cdb::Candidate m_candidate;
    const bool m_follows = true;  // without changes, the candidate follows running; not of Fork
    bool m_isVerified = true;     // the current candidate was validated
    std::vector<TreePtr> m_garbage;
};

}  // namespace cdb

#endif
