// One durable write. Used by the store's writer only.

#ifndef CDB_STORE_TRANSACTION_H
#define CDB_STORE_TRANSACTION_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cdb/store.h"
#include "cdb/store_codec.h"
#include "cdb/store_environment.h"

namespace cdb {

/// Whether a write is under way. LMDB would wait for ever for a second one in the same thread.
struct WriteSlot {
    bool taken = false;
};

/// Remembers its first error: after it every call does nothing, and Commit returns it. Destroyed
/// without Commit, it leaves nothing.
class WriteTransaction {
public:
    /// `what` names the attempt in errors: "the commit".
    WriteTransaction(std::shared_ptr<Environment> environment, WriteSlot& slot, std::string what);
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;

    void Put(MDB_dbi database, std::string_view key, std::string_view payload);
    void Erase(MDB_dbi database, std::string_view key);
    /// The number that is the last key; 0 where there is none.
    [[nodiscard]] std::uint64_t LastNumber(MDB_dbi database);
    /// Drops the first records until `limit` are left.
    void Trim(MDB_dbi database, std::size_t limit);
    void Fail(Error error);
    [[nodiscard]] std::optional<Error> Commit();

private:
    void Remember(int code);
    void End();

    std::shared_ptr<Environment> m_environment;
    WriteSlot& m_slot;
    std::string m_what;
    MDB_txn* m_transaction = nullptr;  // null: not begun, or ended
    std::optional<Error> m_error;
};

class Store::Transaction::Impl {
public:
    Impl(std::shared_ptr<Environment> environment, WriteSlot& slot,
         std::shared_ptr<const codec::RowKeys> keys, std::size_t historyLimit);

    void Put(const RowKey& key, const Row& row);
    void Erase(const RowKey& key);
    void Append(const HistoryEntry& entry);
    [[nodiscard]] std::optional<Error> Commit() { return m_write.Commit(); }

private:
    /// False, with the error remembered, for a key that can't be stored.
    [[nodiscard]] bool Name(const RowKey& key);

    std::shared_ptr<Environment> m_environment;
    std::shared_ptr<const codec::RowKeys> m_keys;
    std::size_t m_historyLimit;
    WriteTransaction m_write;
    std::string m_name;     // of the row at hand
    std::string m_payload;  // likewise
};

}  // namespace cdb

#endif
