// SPDX-License-Identifier: Apache-2.0
// The running datastore on disk: the rows (cdb/rows), the schema table, the last commit's number, the history
// and the fault table. Only this folder and cdb/rows know LMDB.
//
// One process writes (cdbd); others read through StoreReader. In the writing process one thread at a time
// writes, while any thread may read; each read sees one commit.

#ifndef CDB_STORE_STORE_H
#define CDB_STORE_STORE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/expected.h"
#include "cdb/model/error.h"
#include "cdb/model/history.h"
#include "cdb/model/row.h"
#include "cdb/rows/reader.h"
#include "cdb/store/store_options.h"

namespace cdb {

class StagedCommit;

/// The write side, held by one process at a time. Calls that write (Begin up to Commit, SetSchema,
/// SetCheckpoint, DropCheckpoint, SetPending, AddFaults) are for one thread at a time: a second write is
/// refused. Const functions may be called by any thread at any time, and throw FatalError if the file can't
/// be read.
class Store {
public:
    /// Opens or creates the store. Throws FatalError, having changed nothing, if another process holds it
    /// (naming its process id), the format is newer or damaged, the data file is gone, or permission or space
    /// is lacking. Does not read the content of the history's large values.
    static std::unique_ptr<Store> Open(const std::filesystem::path& directory,
                                       const StoreOptions& options = {});

    /// Reads the whole of a store that no process writes, and changes nothing. Throws FatalError that says
    /// what is wrong with it.
    static StoreFigures Check(const std::filesystem::path& directory);
    ~Store();

    [[nodiscard]] const std::filesystem::path& Directory() const;

    /// Empty is true and LastCommit 0 until the first commit.
    [[nodiscard]] bool Empty() const;
    [[nodiscard]] std::uint64_t LastCommit() const;

    /// Sets the schema that rows are written and read by from now on, and stores it if it differs.
    /// `fingerprint` names the modules by which the rows are known to be valid (Schema::Fingerprint); empty:
    /// none. Throws FatalError.
    void SetSchema(const SchemaTable& schema, const std::string& fingerprint = {});

    /// The fingerprint and table of the last SetSchema, of this process or an earlier one. The fingerprint is
    /// empty if there is none.
    [[nodiscard]] std::string SchemaFingerprint() const;
    [[nodiscard]] SchemaTable Schema() const;

    /// A view of the last commit.
    [[nodiscard]] StoreReader::Snapshot Read() const;

    /// Converts a row's key to its stored form and back. `key.node` must be in the schema, with as many keys
    /// as the path to it has. RowKeyOf returns nullopt if the schema lacks the node.
    [[nodiscard]] std::string StoredKey(const RowKey& key) const;
    [[nodiscard]] std::optional<RowKey> RowKeyOf(std::string_view storedKey) const;

    /// One durable write, kept in memory until Commit. Keeps its first error: later calls do nothing, and
    /// Commit returns it. Destroyed without Commit, it changes nothing.
    class Transaction {
    public:
        Transaction(Transaction&&) noexcept;
        ~Transaction();
        /// A key that is too long, has a NUL or a node that is not in the schema is an error.
        void Put(const RowKey& key, const Row& row);
        void Erase(const RowKey& key);
        /// Appends the commit's history entry, sets the last commit's number, and drops the oldest entries
        /// beyond the history's limits. Once for each transaction. An entry whose undo alone is beyond the
        /// limit is kept without it.
        void Append(const HistoryEntry& entry);
        /// The confirmed commit that waits after this one; nullopt: none. Without a call the record stays.
        /// What undoes the commits that wait is kept whatever the history's limits are: where they do not
        /// allow it, Commit fails with kResourceDenied.
        void SetPending(const std::optional<PendingCommit>& pending);
        /// Nullopt if the changes are durable and visible to readers. If the store is full, Commit drops
        /// history to make room; if that does not suffice, the error is kResourceDenied.
        [[nodiscard]] std::optional<Error> Commit();

    private:
        friend class Store;
        explicit Transaction(std::unique_ptr<StagedCommit> staged);
        std::unique_ptr<StagedCommit> m_staged;
    };
    /// `expectedCommit`: the last commit that the changes are based on; Commit refuses to write if the store
    /// is at another one.
    [[nodiscard]] Transaction Begin(std::optional<std::uint64_t> expectedCommit = std::nullopt);

    /// The newest entries first, at most `limit`, without their undo. Unreadable ones are left out.
    [[nodiscard]] std::vector<HistoryEntry> History(std::size_t limit) const;

    /// The entry with its undo. kDataMissing if that is not kept; kOperationFailed if it is damaged.
    [[nodiscard]] base::expected<HistoryEntry, Error> HistoryUndo(std::uint64_t commit) const;

    /// The bytes that the history's limit counts.
    [[nodiscard]] std::uint64_t HistoryBytes() const;

    [[nodiscard]] StoreSize Size() const;

    /// Marks the last commit by the checkpoint's name, durably, and returns the checkpoint with the commit's
    /// number. kDataExists if there is one of that name that is not to be replaced; kResourceDenied beyond
    /// checkpointLimit.
    [[nodiscard]] base::expected<Checkpoint, Error> SetCheckpoint(Checkpoint checkpoint, bool replace);
    /// Removes it, durably. kDataMissing if there is none of that name.
    [[nodiscard]] std::optional<Error> DropCheckpoint(const std::string& name);
    /// kDataMissing if there is none of that name.
    [[nodiscard]] base::expected<Checkpoint, Error> FindCheckpoint(const std::string& name) const;
    /// All of them, in ascending byte order of their names. Unreadable ones are left out.
    [[nodiscard]] std::vector<Checkpoint> Checkpoints() const;

    /// The confirmed commit that waits for its confirmation; nullopt if none does.
    [[nodiscard]] std::optional<PendingCommit> Pending() const;
    /// Replaces the record, durably, without a commit.
    [[nodiscard]] std::optional<Error> SetPending(const std::optional<PendingCommit>& pending);

    /// The node's role in a redundant pair; kUnknown if none has been set.
    [[nodiscard]] NodeRole RoleOfNode() const;
    /// Replaces the record, durably, without a commit.
    [[nodiscard]] std::optional<Error> SetRoleOfNode(const NodeRole& role);

    /// Stores them durably, together, and gives them their numbers. Texts are cut to 4096 bytes; the oldest
    /// faults beyond faultLimit are dropped.
    std::optional<Error> AddFaults(std::vector<Fault> faults);
    /// The newest faults first, at most `limit`. Unreadable ones are left out.
    [[nodiscard]] std::vector<Fault> Faults(std::size_t limit) const;

    /// Returns a function that copies the store into a new file, durable and as of one commit. It may be
    /// called once, in any thread, even after the store has gone. An existing file is an error and stays.
    [[nodiscard]] std::function<std::optional<Error>()> Backup(std::filesystem::path file) const;

private:
    friend std::unique_ptr<RowView> MakeRowView(const Store& store);
    class Impl;
    explicit Store(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

/// The running datastore as it is now, as of a StoreReader.
std::unique_ptr<RowView> MakeRowView(const Store& store);

}  // namespace cdb

#endif
