// SPDX-License-Identifier: Apache-2.0
// A commit's changes, encoded and kept until they are written in one transaction. Used by the store.

#ifndef CDB_STORE_STAGED_COMMIT_H
#define CDB_STORE_STAGED_COMMIT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cdb/store/writer.h"

namespace cdb {

class StagedCommit {
public:
    StagedCommit(std::shared_ptr<StoreWriter> writer, std::shared_ptr<const codec::RowKeys> keys,
                 std::optional<std::uint64_t> expectedCommit);
    ~StagedCommit();
    StagedCommit(const StagedCommit&) = delete;
    StagedCommit& operator=(const StagedCommit&) = delete;

    void Put(const RowKey& key, const Row& row);
    void Erase(const RowKey& key);
    void Append(const HistoryEntry& entry);
    [[nodiscard]] std::optional<Error> Commit();

private:
    /// A row to be written or erased; its key and value follow each other in m_bytes.
    struct Change {
        std::size_t keySize = 0;
        std::size_t valueSize = 0;  // 0: erase it
    };

    /// Writes the stored key to m_name. Returns false, and keeps the error, if the key can't be stored.
    [[nodiscard]] bool Name(const RowKey& key);
    void Fail(ErrorTag tag, const std::string& why);
    void Apply(WriteTransaction& write) const;
    void End();

    std::shared_ptr<StoreWriter> m_writer;
    std::shared_ptr<const codec::RowKeys> m_keys;
    std::optional<std::uint64_t> m_expectedCommit;
    bool m_open = false;  // holds the slot
    std::optional<Error> m_error;
    std::vector<Change> m_changes;
    std::string m_bytes;
    std::optional<history::Addition> m_addition;
    std::string m_name;     // the current row's key
    std::string m_payload;  // and payload
};

}  // namespace cdb

#endif
