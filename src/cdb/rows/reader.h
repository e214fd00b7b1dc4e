// SPDX-License-Identifier: Apache-2.0
// The stored configuration as other processes read it: without a round trip to the one that writes, and each
// read sees one commit. One row for each entry or container with its explicit leaf values, ordered so that
// the entries of one list follow each other in ascending byte order of their keys.

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

class RowView;

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
    friend std::unique_ptr<RowView> MakeRowView(const StoreReader& store);
    class Impl;
    explicit StoreReader(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cdb

#endif
