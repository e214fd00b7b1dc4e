// SPDX-License-Identifier: Apache-2.0
// The running datastore on disk: the rows (cdb/rows), and beside them the schema table, the last commit's
// number, the history and the fault table. The files of this folder and of cdb/rows are the only ones that
// know LMDB.
//
// One process writes (cdbd); others read through StoreReader. In the writing process one thread at a time
// writes; any may read meanwhile: each read sees one commit.

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
#include <variant>
#include <vector>

#include "cdb/model/error.h"
#include "cdb/model/fault.h"
#include "cdb/model/history.h"
#include "cdb/model/row.h"
#include "cdb/rows/reader.h"

namespace cdb {

struct StoreOptions {
    std::size_t mapSize = std::size_t{1} << 30;  // the most that the store can hold; reserved, not used up
    std::size_t historyLimit = 500;              // commits
    std::size_t historyBytes = std::size_t{64} << 20;  // of payload; never more than a quarter of mapSize
    std::uint32_t historyDays = 0;                     // older commits are forgotten; 0: none is for its age
    std::size_t faultLimit = 1000;
    bool remake = false;  // makes an empty store where one has lost its data file, instead of refusing it
};

/// What is in a store.
struct StoreFigures {
    std::uint64_t commit = 0;
    std::uint64_t rows = 0;
    std::uint64_t historyEntries = 0;
    std::uint64_t historyBytes = 0;
    std::uint64_t faults = 0;
    std::uint64_t pageSize = 0;
    std::uint64_t pages = 0;  // of the file
    std::uint64_t freePages = 0;
    std::uint64_t mapSize = 0;
};

/// Write side, held by one process at a time. What writes (Begin up to Commit, SetSchema, AddFault,
/// AddFaults) is for one thread at a time, where a second is refused; what is const may be called by any
/// thread at any time.
class Store {
public:
    /// Opens or creates the store. Throws FatalError, having changed nothing: another process holds it
    /// (its process id is named), a newer or damaged format, a store whose data file is gone, no permission,
    /// no space. What is in the history's large values is not read.
    static std::unique_ptr<Store> Open(const std::filesystem::path& directory,
                                       const StoreOptions& options = {});

    /// Reads all of a store that no process writes, and changes nothing. Throws FatalError that says what is
    /// wrong with it.
    static StoreFigures Check(const std::filesystem::path& directory);
    ~Store();

    [[nodiscard]] const std::filesystem::path& Directory() const;

    /// True until the first commit.
    [[nodiscard]] bool Empty() const;
    [[nodiscard]] std::uint64_t LastCommit() const;

    /// The schema that rows are written and read by from here on; written to the store where it
    /// differs from what is there. `fingerprint` stands for the modules that the rows are known to be valid
    /// by (Schema::Fingerprint); empty: none. Throws FatalError.
    void SetSchema(const SchemaTable& schema, const std::string& fingerprint = {});

    /// As of the last SetSchema, of this process or of one before; empty: none.
    [[nodiscard]] std::string SchemaFingerprint() const;
    [[nodiscard]] SchemaTable Schema() const;

    [[nodiscard]] StoreReader::Snapshot Read() const;

    /// A row's key as it is stored, and back; nullopt for a node that the schema does not have. The node is
    /// one of the schema's, with as many keys as there are on the way to it.
    [[nodiscard]] std::string StoredKey(const RowKey& key) const;
    [[nodiscard]] std::optional<RowKey> RowKeyOf(std::string_view storedKey) const;

    /// One durable write, kept in memory until Commit. Remembers its first error: after it every call does
    /// nothing, and Commit returns it. Destroyed without Commit, it leaves nothing.
    class Transaction {
    public:
        Transaction(Transaction&&) noexcept;
        ~Transaction();
        void Put(const RowKey& key, const Row& row);
        void Erase(const RowKey& key);
        /// Appends the commit's history entry, sets the last commit's number, and drops the oldest entries
        /// beyond the history's limits. Once a transaction. An entry whose undo alone is beyond the limit is
        /// kept without it.
        void Append(const HistoryEntry& entry);
        /// Nullopt: durable and visible to readers. Where the store is full, history is dropped to make room;
        /// where that does not help it is kResourceDenied.
        [[nodiscard]] std::optional<Error> Commit();

    private:
        friend class Store;
        class Impl;
        explicit Transaction(std::unique_ptr<Impl> impl);
        std::unique_ptr<Impl> m_impl;
    };
    /// `expectedCommit`: the last commit that the caller's changes start from; Commit refuses to write where
    /// the store is at another one.
    [[nodiscard]] Transaction Begin(std::optional<std::uint64_t> expectedCommit = std::nullopt);

    /// Newest first, at most `limit`, without what undoes them.
    [[nodiscard]] std::vector<HistoryEntry> History(std::size_t limit) const;

    /// The entry with what undoes it. kDataMissing: it is not kept; kOperationFailed: it is damaged.
    [[nodiscard]] std::variant<HistoryEntry, Error> HistoryUndo(std::uint64_t commit) const;

    /// What the history's limit on bytes counts.
    [[nodiscard]] std::uint64_t HistoryBytes() const;

    /// Durable together; longer texts are cut. They get their numbers here.
    std::optional<Error> AddFaults(std::vector<Fault> faults);
    std::optional<Error> AddFault(Fault fault);
    [[nodiscard]] std::vector<Fault> Faults(std::size_t limit) const;

    /// Makes a copy of the store in a new file, durable and as of one commit, when it is called: once, in any
    /// thread, even after the store has gone. A file that is there is not touched.
    [[nodiscard]] std::function<std::optional<Error>()> Backup(std::filesystem::path file) const;

private:
    friend std::unique_ptr<RowView> MakeRowView(const Store& store);
    class Impl;
    explicit Store(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

/// The running datastore as of now, as of a StoreReader.
std::unique_ptr<RowView> MakeRowView(const Store& store);

}  // namespace cdb

#endif
