// SPDX-License-Identifier: Apache-2.0
// A cursor of LMDB, and one transaction that writes. Used by the store's writer only.

#ifndef CDB_STORE_TRANSACTION_H
#define CDB_STORE_TRANSACTION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "cdb/rows/codec.h"
#include "cdb/rows/environment.h"

namespace cdb {

/// A database's cursor, for one pass.
class Cursor {
public:
    Cursor(MDB_txn* transaction, MDB_dbi database)
    {
        code = mdb_cursor_open(transaction, database, &m_cursor);
    }
    ~Cursor()
    {
        if (m_cursor != nullptr) mdb_cursor_close(m_cursor);
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    /// Returns whether there is a record. If not, `code` says why: MDB_NOTFOUND, or an error.
    bool Go(MDB_cursor_op operation)
    {
        if (m_cursor != nullptr) code = mdb_cursor_get(m_cursor, &m_key, &m_value, operation);
        return m_cursor != nullptr && code == MDB_SUCCESS;
    }
    bool GoTo(std::string_view key)
    {
        m_key = Bytes(key);
        return Go(MDB_SET_RANGE);
    }
    void Drop() { code = mdb_cursor_del(m_cursor, 0); }
    [[nodiscard]] std::string_view Key() const { return Text(m_key); }
    [[nodiscard]] std::string_view Value() const { return Text(m_value); }

    int code = MDB_SUCCESS;

private:
    MDB_cursor* m_cursor = nullptr;
    MDB_val m_key{};
    MDB_val m_value{};
};

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
    /// The payload under the key of `meta`, valid until the next write; nullopt if there is none or it can't
    /// be read.
    [[nodiscard]] std::optional<std::string_view> Meta(std::string_view key);
    /// The same as a number.
    [[nodiscard]] std::optional<std::uint64_t> Number(std::string_view key);
    /// The number that is the last key; 0 if there is none.
    [[nodiscard]] std::uint64_t LastNumber(MDB_dbi database);
    [[nodiscard]] bool Has(MDB_dbi database, std::string_view key);
    /// The number of the database's records.
    [[nodiscard]] std::size_t Count(MDB_dbi database);
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

}  // namespace cdb

#endif
