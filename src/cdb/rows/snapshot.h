// SPDX-License-Identifier: Apache-2.0
// The implementation of a snapshot, shared by the reader and the store's writer. Used by these only.

#ifndef CDB_ROWS_SNAPSHOT_H
#define CDB_ROWS_SNAPSHOT_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cdb/rows/codec.h"
#include "cdb/rows/environment.h"

namespace cdb {

class SnapshotImpl {
public:
    using EntryVisitor = std::function<bool(const std::vector<std::string>& keys, const Row& row)>;

    SnapshotImpl(std::shared_ptr<Environment> environment, std::shared_ptr<const codec::RowKeys> keys);
    ~SnapshotImpl();
    SnapshotImpl(const SnapshotImpl&) = delete;
    SnapshotImpl& operator=(const SnapshotImpl&) = delete;

    [[nodiscard]] std::uint64_t Commit() const;
    [[nodiscard]] std::optional<Row> Get(const RowKey& key);
    [[nodiscard]] std::size_t Count(NodeId list, const std::vector<std::string>& parentKeys);
    void Scan(NodeId list, const std::vector<std::string>& parentKeys, std::size_t first,
              const EntryVisitor& visit);
    void ScanAfter(NodeId list, const std::vector<std::string>& parentKeys,
                   const std::vector<std::string>& after, const EntryVisitor& visit);

private:
    /// A cursor and its scratch memory for one pass. Passes nest: a visitor may scan too.
    class PassHold {
    public:
        explicit PassHold(SnapshotImpl& snapshot);
        ~PassHold();
        PassHold(const PassHold&) = delete;
        PassHold& operator=(const PassHold&) = delete;
        Environment::Pass& operator*() const { return *m_pass; }
        Environment::Pass* operator->() const { return m_pass.get(); }

    private:
        Environment::Reading& m_reading;
        std::unique_ptr<Environment::Pass> m_pass;
    };

    /// Visits the rows under the pass's prefix, from the first one that is not before `from`, until `visit`
    /// returns false.
    template <typename Visit>
    void ForEach(Environment::Pass& pass, const std::string& from, const Visit& visit);

    std::shared_ptr<Environment> m_environment;
    std::shared_ptr<const codec::RowKeys> m_keys;
    std::unique_ptr<Environment::Reading> m_reading;
};

}  // namespace cdb

#endif
