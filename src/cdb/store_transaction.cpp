// One durable write.

#include "cdb/store_transaction.h"

namespace cdb {

WriteTransaction::WriteTransaction(std::shared_ptr<Environment> environment, WriteSlot& slot,
                                   std::string what)
    : m_environment(std::move(environment)), m_slot(slot), m_what(std::move(what))
{
    if (m_slot.taken) {
        m_error = Error{.tag = ErrorTag::kInUse,
                        .message = m_what + " failed: another write to the store is under way; try again"};
        return;
    }
    Remember(mdb_txn_begin(m_environment->Handle(), nullptr, 0, &m_transaction));
    if (m_transaction != nullptr) m_slot.taken = true;
}

WriteTransaction::~WriteTransaction()
{
    if (m_transaction == nullptr) return;
    mdb_txn_abort(m_transaction);
    End();
}

void WriteTransaction::End()
{
    m_transaction = nullptr;
    m_slot.taken = false;
}

void WriteTransaction::Remember(int code)
{
    if (code != MDB_SUCCESS && !m_error) m_error = ToError(m_environment->Directory(), m_what, code);
}

void WriteTransaction::Fail(Error error)
{
    if (!m_error) m_error = std::move(error);
}

void WriteTransaction::Put(MDB_dbi database, std::string_view key, std::string_view payload)
{
    if (m_error) return;
    const std::string sealed = codec::Seal(key, payload);
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
    End();
    return m_error;
}

Store::Transaction::Impl::Impl(std::shared_ptr<Environment> environment, WriteSlot& slot,
                               std::shared_ptr<const codec::RowKeys> keys, std::size_t historyLimit)
    : m_environment(std::move(environment)),
      m_keys(std::move(keys)),
      m_historyLimit(historyLimit),
      m_write(m_environment, slot, "the commit")
{
}

bool Store::Transaction::Impl::Name(const RowKey& key)
{
    for (const auto& one : key.keys) {
        if (one.find('\0') == std::string::npos) continue;
        m_write.Fail({.tag = ErrorTag::kInvalidValue,
                      .message = "the commit failed: a key has a NUL character in it; use another name"});
        return false;
    }
    if (key.node >= m_keys->Schema().Size()) {
        m_write.Fail({.tag = ErrorTag::kOperationFailed,
                      .message = "the commit failed: the store's schema has no such node"});
        return false;
    }
    m_keys->Prefix(key.node, key.keys, m_name);
    return true;
}

void Store::Transaction::Impl::Put(const RowKey& key, const Row& row)
{
    if (!Name(key)) return;
    codec::ToBytes(row, m_payload);
    m_write.Put(m_environment->rows, m_name, m_payload);
}

void Store::Transaction::Impl::Erase(const RowKey& key)
{
    if (Name(key)) m_write.Erase(m_environment->rows, m_name);
}

void Store::Transaction::Impl::Append(const HistoryEntry& entry)
{
    const std::string number = codec::NumberBytes(entry.commit);
    m_write.Put(m_environment->history, number, codec::ToBytes(entry));
    m_write.Put(m_environment->meta, codec::kCommitKey, number);
    m_write.Trim(m_environment->history, m_historyLimit);
}

Store::Transaction::Transaction(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
Store::Transaction::Transaction(Transaction&&) noexcept = default;
Store::Transaction::~Transaction() = default;

void Store::Transaction::Put(const RowKey& key, const Row& row) { m_impl->Put(key, row); }
void Store::Transaction::Erase(const RowKey& key) { m_impl->Erase(key); }
void Store::Transaction::Append(const HistoryEntry& entry) { m_impl->Append(entry); }
std::optional<Error> Store::Transaction::Commit() { return m_impl->Commit(); }

}  // namespace cdb
