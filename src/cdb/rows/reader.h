// SPDX-License-Identifier: Apache-2.0
// Reads the stored configuration, without a round trip to the process that writes it; each read sees one
// commit. One row for each entry or container with its explicit leaf values. The entries of one list follow
// each other in ascending byte order of their keys.

#ifndef CDB_ROWS_READER_H
#define CDB_ROWS_READER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cdb/model/error.h"
#include "cdb/model/row.h"

namespace cdb {

class Environment;
class RowView;

namespace codec {
class RowKeys;
}

/// The read side of the store. Every call may throw FatalError if the file can't be read any more.
class StoreReader {
public:
    /// Opens the store in `directory` read only. Throws FatalError if there is no store, no permission, or a
    /// format that this program does not know.
    static std::unique_ptr<StoreReader> Open(const std::filesystem::path& directory);
    ~StoreReader();

    [[nodiscard]] const SchemaTable& Schema() const;

    /// A view of one commit's rows. Must be short-lived: while it lives, the pages that later commits free
    /// are not reused, and the file grows.
    class Snapshot {
    public:
        Snapshot(Snapshot&&) noexcept;
        Snapshot& operator=(Snapshot&&) noexcept;
        ~Snapshot();

        /// The number of the commit; 0 before the first.
        [[nodiscard]] std::uint64_t Commit() const;

        /// The row, or nullopt if there is none. A plain container without explicit leaves has none.
        [[nodiscard]] std::optional<Row> Get(const RowKey& key) const;

        /// The number of entries of the list below the parent with these keys.
        [[nodiscard]] std::size_t Count(NodeId list, const std::vector<std::string>& parentKeys) const;

        /// Visits the entries in ascending byte order, from index `first` on, until the visitor returns
        /// false. `keys` are the entry's own.
        using EntryVisit = std::function<bool(const std::vector<std::string>& keys, const Row& row)>;
        void Scan(NodeId list, const std::vector<std::string>& parentKeys, std::size_t first,
                  const EntryVisit& visit) const;

        /// The same, from the first entry whose keys are greater than `after`, which need not exist.
        void ScanAfter(NodeId list, const std::vector<std::string>& parentKeys,
                       const std::vector<std::string>& after, const EntryVisit& visit) const;

    private:
        friend class StoreReader;
        friend class Store;
        Snapshot(std::shared_ptr<Environment> environment, std::shared_ptr<const codec::RowKeys> keys);
        struct Impl;
        std::unique_ptr<Impl> m_impl;
    };

    /// A view of the last commit.
    [[nodiscard]] Snapshot Read() const;

private:
    friend std::unique_ptr<RowView> MakeRowView(const StoreReader& store);
    class Impl;
    explicit StoreReader(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cdb

#endif
