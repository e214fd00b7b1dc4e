// SPDX-License-Identifier: Apache-2.0
// Applies writes to the store, one at a time, and makes room for them if it is full. Used by the store.

#ifndef CDB_STORE_WRITER_H
#define CDB_STORE_WRITER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cdb/store/history.h"
#include "cdb/store/store_options.h"
#include "cdb/store/transaction.h"

namespace cdb {

/// Taken while a write is under way, so that a second one is refused. For any thread.
class WriteSlot {
public:
    /// Returns false if it is taken.
    bool Take() { return !m_taken.exchange(true); }
    void GiveBack() { m_taken = false; }

    /// Gives back the taken slot when it is destroyed.
    class Hold {
    public:
        explicit Hold(WriteSlot& slot) : m_slot(slot) {}
        ~Hold() { m_slot.GiveBack(); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        WriteSlot& m_slot;
    };

private:
    std::atomic<bool> m_taken{false};
};

/// Writes the record of the confirmed commit that waits, or erases it.
void PutPending(WriteTransaction& write, const Environment& environment,
                const std::optional<PendingCommit>& pending);

/// The error of a write that finds the slot taken.
Error SlotTaken(const std::string& what);

/// Applies changes durably. The caller takes the slot.
class StoreWriter {
public:
    using Apply = std::function<void(WriteTransaction& write)>;

    StoreWriter(std::shared_ptr<Environment> environment, const StoreOptions& options);

    /// `apply` makes the changes; it is called again after room was made for them.
    [[nodiscard]] std::optional<Error> Do(const std::string& what, const Apply& apply);

    [[nodiscard]] Environment& Used() const { return *m_environment; }
    [[nodiscard]] const history::Limits& Limits() const { return m_limits; }
    WriteSlot& Slot() { return m_slot; }

private:
    /// Drops half of the history's bytes. Returns false if there was nothing to drop, or it failed.
    bool MakeRoom();

    std::shared_ptr<Environment> m_environment;
    history::Limits m_limits;
    WriteSlot m_slot;
};

/// A commit's changes, encoded and kept until they are written in one transaction.
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
    void SetPending(const std::optional<PendingCommit>& pending) { m_pending = pending; }
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
    std::optional<std::optional<PendingCommit>> m_pending;  // the new record, or none; nullopt: it stays
    std::string m_name;                                     // the current row's key
    std::string m_payload;                                  // and payload
};

}  // namespace cdb

#endif
