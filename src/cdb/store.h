// The running datastore on disk. One row an entry or container with its explicit leaf values by
// name, ordered so that the entries of one list follow each other in ascending byte order of their
// keys; beside them the schema table, the last commit's number, the history and the fault table.
// store*.cpp are the only files that know LMDB.
//
// One process writes (cdbd); others read through StoreReader without a round trip to it.

#ifndef CDB_STORE_H
#define CDB_STORE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cdb/error.h"
#include "cdb/schema_table.h"

namespace cdb {

/// The explicit values of one entry's or container's own leaves, keys left out, by leaf name. A leaf
/// that the schema no longer has is ignored by readers; one that it has gained reads as its default.
struct Row {
    std::vector<std::pair<std::string, Value>> leaves;
    friend bool operator==(const Row&, const Row&) = default;
};

/// Where a row stands: the list or container, and the keys of all list entries on the way to it,
/// its own included, from the root.
struct RowKey {
    NodeId node = kNoNode;
    std::vector<std::string> keys;
    friend bool operator==(const RowKey&, const RowKey&) = default;
};

struct HistoryEntry {
    std::uint64_t commit = 0;
    std::int64_t timeUs = 0;  // since the epoch
    std::string user;
    std::string source;  // "netconf", "init"
    std::string comment;
    std::string undo;  // what takes the datastore back to the commit before (see datastore)
};

struct Fault {
    std::uint64_t number = 0;  // given by the store
    std::int64_t timeUs = 0;
    std::string process;
    std::int64_t pid = 0;
    std::int32_t kind = 0;
    std::string function;
    std::string file;
    std::int32_t line = 0;
    std::string text;
};

/// Read side. Every call may throw FatalError when the file can't be read any more.
class StoreReader {
public:
    /// Opens the store in `directory` read only. Throws FatalError: no store there, no permission, a
    /// format that this program does not know.
    static std::unique_ptr<StoreReader> Open(const std::filesystem::path& directory);
    ~StoreReader();

    [[nodiscard]] const SchemaTable& Schema() const;

    /// A view of one commit's rows. Short-lived: an old one makes the file grow.
    class Snapshot {
    public:
        Snapshot(Snapshot&&) noexcept;
        Snapshot& operator=(Snapshot&&) noexcept;
        ~Snapshot();

        [[nodiscard]] std::uint64_t Commit() const;

        /// The row, or nullopt where there is none. A plain container without explicit leaves has none.
        [[nodiscard]] std::optional<Row> Get(const RowKey& key) const;

        /// How many entries the list has below the parent with these keys.
        [[nodiscard]] std::size_t Count(NodeId list, const std::vector<std::string>& parentKeys) const;

        /// Visits entries in ascending byte order, from the `first`th on, until the visitor returns false.
        /// `keys` are the entry's own.
        void Scan(
            NodeId list, const std::vector<std::string>& parentKeys, std::size_t first,
            const std::function<bool(const std::vector<std::string>& keys, const Row& row)>& visit) const;

        /// The same, from the first entry on whose keys are behind `after`, which needs not be there.
        void ScanAfter(
            NodeId list, const std::vector<std::string>& parentKeys, const std::vector<std::string>& after,
            const std::function<bool(const std::vector<std::string>& keys, const Row& row)>& visit) const;

    private:
        friend class StoreReader;
        friend class Store;
        class Impl;
        explicit Snapshot(std::unique_ptr<Impl> impl);
        std::unique_ptr<Impl> m_impl;
    };

    [[nodiscard]] Snapshot Read() const;

private:
    class Impl;
    explicit StoreReader(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

struct StoreOptions {
    std::size_t mapSize = std::size_t{1} << 30;  // reserved, not used up
    std::size_t historyLimit = 500;              // commits
    std::size_t faultLimit = 1000;
};

/// Write side, held by one process at a time.
class Store {
public:
    /// Opens or creates the store. Throws FatalError, having changed nothing: another process holds it
    /// (its process id is named), a newer or damaged format, no permission, no space.
    static std::unique_ptr<Store> Open(const std::filesystem::path& directory,
                                       const StoreOptions& options = {});
    ~Store();

    [[nodiscard]] const std::filesystem::path& Directory() const;

    /// True until the first commit.
    [[nodiscard]] bool Empty() const;
    [[nodiscard]] std::uint64_t LastCommit() const;

    /// The schema that rows are written and read by from here on; written to the store where it
    /// differs from what is there.
    void SetSchema(const SchemaTable& schema);

    [[nodiscard]] StoreReader::Snapshot Read() const;

    /// One durable write. Remembers its first error: after it every call does nothing, and Commit
    /// returns it. Destroyed without Commit, it leaves nothing.
    class Transaction {
    public:
        Transaction(Transaction&&) noexcept;
        ~Transaction();
        void Put(const RowKey& key, const Row& row);
        void Erase(const RowKey& key);
        /// Appends the commit's history entry, sets the last commit's number, and drops entries beyond
        /// the history's limit.
        void Append(const HistoryEntry& entry);
        /// Nullopt: durable and visible to readers. A full disk is kResourceDenied.
        [[nodiscard]] std::optional<Error> Commit();

    private:
        friend class Store;
        class Impl;
        explicit Transaction(std::unique_ptr<Impl> impl);
        std::unique_ptr<Impl> m_impl;
    };
    [[nodiscard]] Transaction Begin();

    /// Newest first, at most `limit`.
    [[nodiscard]] std::vector<HistoryEntry> History(std::size_t limit) const;

    std::optional<Error> AddFault(Fault fault);
    [[nodiscard]] std::vector<Fault> Faults(std::size_t limit) const;

private:
    class Impl;
    explicit Store(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cdb

#endif
