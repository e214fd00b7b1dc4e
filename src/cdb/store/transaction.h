// SPDX-License-Identifier: Apache-2.0
// Writing to the store: one LMDB transaction, the writer that carries changes out in one and makes room for
// them where the store is full, and a commit's changes until then. Used by the store's writer only.

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

/// One LMDB transaction. Remembers its first error: after it every call does nothing, and Commit returns it.
/// Destroyed without Commit, it leaves nothing.
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
    /// The number under the key of `meta`; nullopt: none.
    [[nodiscard]] std::optional<std::uint64_t> Number(std::string_view key);
    /// The number that is the last key; 0 where there is none.
    [[nodiscard]] std::uint64_t LastNumber(MDB_dbi database);
    /// Drops the first records until `limit` are left.
    void Trim(MDB_dbi database, std::size_t limit);

    void Fail(Error error);
    void Remember(int code);
    [[nodiscard]] bool Failed() const { return m_error.has_value(); }
    /// Whether what it failed of is want of space.
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

/// Whether a write is under way: a second one is refused.
class WriteSlot {
public:
    /// False: it is taken.
    bool Take() { return !m_taken.exchange(true); }
    void GiveBack() { m_taken = false; }

    /// Gives back what was taken, at its end.
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

/// Carries changes out, durably. The slot is the caller's to take.
class StoreWriter {
public:
    using Apply = std::function<void(WriteTransaction& write)>;

    StoreWriter(std::shared_ptr<Environment> environment, const StoreOptions& options);

    /// `apply` makes the changes; it is called again where room had to be made for them.
    [[nodiscard]] std::optional<Error> Do(const std::string& what, const Apply& apply);

    [[nodiscard]] Environment& Used() const { return *m_environment; }
    [[nodiscard]] const history::Limits& Limits() const { return m_limits; }
    WriteSlot& Slot() { return m_slot; }

private:
    /// Drops half of the history's bytes. False: there was nothing, or it can't be done.
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
    /// A row to be written or erased; its bytes lie in m_bytes, one after the other.
    struct Change {
        std::size_t keySize = 0;
        std::size_t valueSize = 0;  // 0: erased
    };

    /// False, with the error remembered, for a key that can't be stored.
    [[nodiscard]] bool Name(const RowKey& key);
    void Fail(ErrorTag tag, const std::string& why);
    void Apply(WriteTransaction& write) const;
    void End();

    std::shared_ptr<StoreWriter> m_writer;
    std::shared_ptr<const codec::RowKeys> m_keys;
    std::optional<std::uint64_t> m_expectedCommit;
    bool m_open = false;  // has the slot
    std::optional<Error> m_error;
    std::vector<Change> m_changes;
    std::string m_bytes;
    std::optional<history::Addition> m_addition;
    std::string m_name;     // of the row at hand
    std::string m_payload;  // likewise
};

}  // namespace cdb

#endif
