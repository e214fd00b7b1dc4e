// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/transaction.h"

#include <utility>

namespace cdb {

WriteTransaction::WriteTransaction(const Environment& environment, std::string what)
    : m_environment(environment), m_what(std::move(what))
{
    Remember(mdb_txn_begin(m_environment.Handle(), nullptr, 0, &m_transaction));
}

WriteTransaction::~WriteTransaction()
{
    if (m_transaction != nullptr) mdb_txn_abort(m_transaction);
}

void WriteTransaction::Remember(int code)
{
    if (code == MDB_SUCCESS || m_error) return;
    m_error = ToError(m_environment.Directory(), m_what, code);
    m_full = m_error->tag == ErrorTag::kResourceDenied;
}

void WriteTransaction::Fail(Error error)
{
    if (!m_error) m_error = std::move(error);
}

void WriteTransaction::Put(MDB_dbi database, std::string_view key, std::string_view payload)
{
    if (!m_error) PutSealed(database, key, codec::Seal(key, payload));
}

void WriteTransaction::PutSealed(MDB_dbi database, std::string_view key, std::string_view sealed)
{
    if (m_error) return;
    MDB_val name = Bytes(key);
    MDB_val value = Bytes(sealed);
    Remember(mdb_put(m_transaction, database, &name, &value, 0));
}

void WriteTransaction::Erase(MDB_dbi database, std::string_view key)
{
    if (m_error) return;
    MDB_val name = Bytes(key);
    const int code = mdb_del(m_transaction, database, &name, nullptr);
    if (code != MDB_NOTFOUND) Remember(code);
}

std::optional<std::uint64_t> WriteTransaction::Number(std::string_view key)
{
    if (m_error) return std::nullopt;
    MDB_val name = Bytes(key);
    MDB_val value{};
    const int code = mdb_get(m_transaction, m_environment.meta, &name, &value);
    if (code != MDB_NOTFOUND) Remember(code);
    if (code != MDB_SUCCESS) return std::nullopt;
    const auto payload = codec::Payload(Text(value));
    return payload ? codec::NumberOf(*payload) : std::nullopt;
}

std::uint64_t WriteTransaction::LastNumber(MDB_dbi database)
{
    if (m_error) return 0;
    MDB_cursor* cursor = nullptr;
    Remember(mdb_cursor_open(m_transaction, database, &cursor));
    if (m_error) return 0;
    MDB_val key{};
    MDB_val value{};
    const int code = mdb_cursor_get(cursor, &key, &value, MDB_LAST);
    const auto number = code == MDB_SUCCESS ? codec::NumberOf(Text(key)) : std::nullopt;
    mdb_cursor_close(cursor);
    if (code != MDB_NOTFOUND) Remember(code);
    return number.value_or(0);
}

void WriteTransaction::Trim(MDB_dbi database, std::size_t limit)
{
    if (m_error) return;
    MDB_stat statistics{};
    Remember(mdb_stat(m_transaction, database, &statistics));
    MDB_cursor* cursor = nullptr;
    if (!m_error && statistics.ms_entries > limit)
        Remember(mdb_cursor_open(m_transaction, database, &cursor));
    for (std::size_t count = statistics.ms_entries; count > limit && !m_error; --count) {
        MDB_val key{};
        MDB_val value{};
        Remember(mdb_cursor_get(cursor, &key, &value, MDB_FIRST));
        if (!m_error) Remember(mdb_cursor_del(cursor, 0));
    }
    if (cursor != nullptr) mdb_cursor_close(cursor);
}

std::optional<Error> WriteTransaction::Commit()
{
    if (m_transaction == nullptr) {
        Fail({.tag = ErrorTag::kOperationFailed, .message = m_what + " failed: it has ended before"});
        return m_error;
    }
    if (m_error)
        mdb_txn_abort(m_transaction);
    else
        Remember(mdb_txn_commit(m_transaction));
    m_transaction = nullptr;
    return m_error;
}

}  // namespace cdb
