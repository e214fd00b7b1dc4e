// SPDX-License-Identifier: Apache-2.0
// Writing to the store: one LMDB transaction, the writer that applies changes in one and makes room for them
// if the store is full, and the changes of a commit until then. Used by the store's writer only.

#ifndef CDB_STORE_TRANSACTION_H
#define CDB_STORE_TRANSACTION_H

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/rows/codec.h"
#include "cdb/rows/environment.h"
#include "cdb/store/history.h"
#include "cdb/store/store.h"

namespace cdb {

/// One LMDB transaction. Keeps its first error: later calls do nothing, and Commit returns it. Destroyed
/// without Commit, it changes nothing.
class WriteTransaction {
public:
    /// `what` names the attempt in errors: "the commit".
    WriteTransaction(const Environment& environment, std::string what);
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;

    void Put(MDB_dbi database, std::string_view key, std::string_view payload);
    void PutSealed(MDB_dbi database, std::string_view key, std::string_view sealed);
    void Erase(MDB_dbi database, std::string_view key);
    /// The number under the key of `meta`; nullopt if there is none or it can't be read.
    [[nodiscard]] std::optional<std::uint64_t> Number(std::string_view key);
    /// The number that is the last key; 0 if there is none.
    [[nodiscard]] std::uint64_t LastNumber(MDB_dbi database);
    /// Drops the first records until `limit` are left.
    void Trim(MDB_dbi database, std::size_t limit);

    void Fail(Error error);
    void Remember(int code);
    [[nodiscard]] bool Failed() const { return m_error.has_value(); }
    /// Whether it failed for lack of space.
    [[nodiscard]] bool Full() const { return m_full; }
    [[nodiscard]] MDB_txn* Handle() const { return m_transaction; }
    [[nodiscard]] std::optional<Error> Commit();

private:
    const Environment& m_environment;
    std::string m_what;
    MDB_txn* m_transaction = nullptr;  // null: not begun, or ended
    std::optional<Error> m_error;
    bool m_full = false;
};

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

class Store::Transaction::Impl {
public:
    Impl(std::shared_ptr<StoreWriter> writer, std::shared_ptr<const codec::RowKeys> keys,
         std::optional<std::uint64_t> expectedCommit);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

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
