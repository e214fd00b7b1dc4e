// SPDX-License-Identifier: Apache-2.0
// The running and candidate datastores. Running is what the store holds; the candidate is running and, in
// memory, what was touched since. Every operation costs in proportion to what it touches, not to the
// configuration. Knows no session and no lock. One thread at a time calls its functions, but for Running,
// which any thread may call at any time.

#ifndef CDB_DATASTORE_DATASTORE_H
#define CDB_DATASTORE_DATASTORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "cdb/datastore/tree.h"
#include "cdb/model/change_set.h"
#include "cdb/model/error.h"
#include "cdb/model/path.h"
#include "cdb/model/row_change.h"
#include "cdb/rows/row_view.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

struct lyd_node;

namespace cdb {

/// The default-operation of an edit (RFC 6241, section 7.2).
enum class DefaultOperation : std::uint8_t { kMerge, kReplace, kNone };

/// The test-option of an edit (RFC 6241, section 7.2).
enum class TestOption : std::uint8_t { kSet, kTestThenSet, kTestOnly };

/// An entry that an edit will create in the candidate, and whom to ask about it.
struct NewEntry {
    Path path;
    std::string callpoint;
    friend bool operator==(const NewEntry&, const NewEntry&) = default;
};

/// A leaf that a callpoint sets in the transaction of the edit.
struct LeafWrite {
    Path path;
    Value value;
};

struct CommitInfo {
    std::string user;
    std::string source;
    std::string comment;
    std::int64_t timeUs = 0;
};

class Datastore {
public:
    /// Throws FatalError where the store was written with other modules and its rows can't be read by these
    /// (naming the row) or do not validate. `schema` and `store` must outlive it.
    Datastore(const Schema& schema, Store& store);
    ~Datastore();

    /// The rows as of now. Of the candidate: until the next change of it.
    [[nodiscard]] std::unique_ptr<RowView> Running() const;
    [[nodiscard]] std::unique_ptr<RowView> Candidate() const;

    /// Of the outermost lists only the entries that the candidate may differ in from running. Until the next
    /// change of the candidate.
    enum class Which : std::uint8_t { kRunning, kCandidate };
    [[nodiscard]] std::unique_ptr<RowView> Touched(Which which) const;

    /// Which entries of lists with a callpoint the edit would create, in the edit's order. `edit` is
    /// the parsed content of <config> (first sibling), with the nc:operation attributes as metadata
    /// (or, on opaque nodes, as attributes); untouched.
    [[nodiscard]] std::vector<NewEntry> EntriesToCreate(const lyd_node* edit,
                                                        DefaultOperation operation) const;

    /// Applies the edit to the candidate, the callpoints' writes just before the edit's own leaves of
    /// the entry concerned. On an error the candidate is as before, whatever the client's error-option: where
    /// an edit stops depends on the order in which it is applied, which no client can know. A write to an
    /// entry that the edit does not create is dropped.
    [[nodiscard]] std::optional<Error> Edit(const lyd_node* edit, DefaultOperation operation,
                                            const std::vector<LeafWrite>& writes);

    /// Edit, and the test that goes with it. kSet: Edit alone. kTestThenSet: the candidate is validated
    /// afterwards and, where it is not valid, is as before the edit. kTestOnly: likewise, and as before
    /// in any case. Returns the edit's error or those of the validation; empty: done.
    [[nodiscard]] std::vector<Error> EditAndTest(const lyd_node* edit, DefaultOperation operation,
                                                 TestOption test, const std::vector<LeafWrite>& writes);

    /// Whether candidate differs from running (looked for at what was touched only).
    [[nodiscard]] bool Changed() const;

    /// The candidate's errors, checked at what was touched and what refers to it. Empty: valid.
    [[nodiscard]] std::vector<Error> Validate();

    /// What a commit now would report, with the number that it would get.
    [[nodiscard]] ChangeSet Changes() const;

    /// The rows that a commit now would change, parents before what is below them.
    [[nodiscard]] std::vector<RowChange> ChangedRows() const;

    /// Makes the candidate running: validates, writes the store, then changes running. Returns the
    /// change set or the errors, with running and candidate as before. An empty change set: nothing that a
    /// subscriber would see; written was something only where a default was made explicit or back.
    [[nodiscard]] std::variant<ChangeSet, std::vector<Error>> Commit(const CommitInfo& info);

    /// Makes the candidate equal to running.
    void Discard();

    /// Takes a commit back in the candidate: the rows that it changed are as they were before it. No
    /// callpoint has a say. `entry`: with its undo (Store::HistoryUndo).
    [[nodiscard]] std::optional<Error> Undo(const HistoryEntry& entry);

    /// Frees what commits and discards have left behind. To be called when no answer is waited for.
    void TidyUp();

    /// Loads a first configuration (no callpoint is called) into candidate and commits it. `warnings`
    /// gets one text an entry whose default no callpoint has written.
    [[nodiscard]] std::vector<Error> Initialize(const lyd_node* content, const CommitInfo& info,
                                                std::vector<std::string>& warnings);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cdb

#endif
