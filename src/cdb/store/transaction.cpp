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

std::optional<std::string_view> WriteTransaction::Meta(std::string_view key)
{
    if (m_error) return std::nullopt;
    MDB_val name = Bytes(key);
    MDB_val value{};
    const int code = mdb_get(m_transaction, m_environment.meta, &name, &value);
    if (code != MDB_NOTFOUND) Remember(code);
    if (code != MDB_SUCCESS) return std::nullopt;
    return codec::Payload(Text(value));
}

std::optional<std::uint64_t> WriteTransaction::Number(std::string_view key)
{
    const auto payload = Meta(key);
    return payload ? codec::NumberOf(*payload) : std::nullopt;
}

std::uint64_t WriteTransaction::LastNumber(MDB_dbi database)
{
    if (m_error) return 0;
    Cursor cursor(m_transaction, database);
    if (cursor.Go(MDB_LAST)) return codec::NumberOf(cursor.Key()).value_or(0);
    if (cursor.code != MDB_NOTFOUND) Remember(cursor.code);
    return 0;
}

bool WriteTransaction::Has(MDB_dbi database, std::string_view key)
{
    if (m_error) return false;
    MDB_val name = Bytes(key);
    MDB_val ignored{};
    const int code = mdb_get(m_transaction, database, &name, &ignored);
    if (code != MDB_NOTFOUND) Remember(code);
    return code == MDB_SUCCESS;
}

std::size_t WriteTransaction::Count(MDB_dbi database)
{
    if (m_error) return 0;
    MDB_stat statistics{};
    Remember(mdb_stat(m_transaction, database, &statistics));
    return m_error ? 0 : statistics.ms_entries;
}

void WriteTransaction::Trim(MDB_dbi database, std::size_t limit)
{
    const std::size_t entries = Count(database);
    if (m_error || entries <= limit) return;
    Cursor cursor(m_transaction, database);
    for (std::size_t count = entries; count > limit && !m_error; --count) {
        if (cursor.Go(MDB_FIRST)) cursor.Drop();
        Remember(cursor.code);
    }
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
