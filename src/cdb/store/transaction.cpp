// SPDX-License-Identifier: Apache-2.0
// One LMDB transaction, and a commit's changes.

#include "cdb/store/transaction.h"

namespace cdb {
namespace {

constexpr const char* kCommitting = "the commit";

}  // namespace

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

Store::Transaction::Impl::Impl(std::shared_ptr<StoreWriter> writer,
                               std::shared_ptr<const codec::RowKeys> keys,
                               std::optional<std::uint64_t> expectedCommit)
    : m_writer(std::move(writer)), m_keys(std::move(keys)), m_expectedCommit(expectedCommit)
{
    m_open = m_writer->Slot().Take();
    if (!m_open) m_error = SlotTaken(kCommitting);
}

Store::Transaction::Impl::~Impl() { End(); }

void Store::Transaction::Impl::End()
{
    if (m_open) m_writer->Slot().GiveBack();
    m_open = false;
}

void Store::Transaction::Impl::Fail(ErrorTag tag, const std::string& why)
{
    if (!m_error) m_error = Error{.tag = tag, .message = std::string(kCommitting) + " failed: " + why};
}

bool Store::Transaction::Impl::Name(const RowKey& key)
{
    if (m_error) return false;
    for (const auto& one : key.keys)
        if (one.find('\0') != std::string::npos)
            Fail(ErrorTag::kInvalidValue, "a key has a NUL character in it; use another name");
    if (key.node >= m_keys->Schema().Size())
        Fail(ErrorTag::kOperationFailed, "the store's schema has no such node");
    if (m_error) return false;
    m_keys->Prefix(key.node, key.keys, m_name);
    if (m_name.size() > static_cast<std::size_t>(mdb_env_get_maxkeysize(m_writer->Used().Handle())))
        m_error = ToError(m_writer->Used().Directory(), kCommitting, MDB_BAD_VALSIZE);
    return !m_error;
}

void Store::Transaction::Impl::Put(const RowKey& key, const Row& row)
{
    if (!Name(key)) return;
    codec::ToBytes(row, m_payload);
    const std::string sealed = codec::Seal(m_name, m_payload);
    m_changes.push_back({m_name.size(), sealed.size()});
    m_bytes.append(m_name).append(sealed);
}

void Store::Transaction::Impl::Erase(const RowKey& key)
{
    if (!Name(key)) return;
    m_changes.push_back({m_name.size(), 0});
    m_bytes += m_name;
}

void Store::Transaction::Impl::Append(const HistoryEntry& entry)
{
    if (m_error) return;
    if (m_addition) return Fail(ErrorTag::kOperationFailed, "it has two entries for the history");
    m_addition = history::Encode(entry, m_writer->Limits());
}

void Store::Transaction::Impl::Apply(WriteTransaction& write) const
{
    const auto stored = write.Number(codec::kCommitKey).value_or(0);
    if (m_expectedCommit && *m_expectedCommit != stored)
        write.Fail({.tag = ErrorTag::kOperationFailed,
                    .message = std::string(kCommitting) + " failed: the store is at commit " +
                               std::to_string(stored) + ", not " + std::to_string(*m_expectedCommit) +
                               ": another process has written it; restart cdbd"});
    std::string_view rest = m_bytes;
    const auto take = [&rest](std::size_t size) {
        const auto bytes = rest.substr(0, size);
        rest.remove_prefix(size);
        return bytes;
    };
    const MDB_dbi rows = m_writer->Used().rows;
    for (const Change& change : m_changes) {
        const auto key = take(change.keySize);
        const auto value = take(change.valueSize);
        if (value.empty())
            write.Erase(rows, key);
        else
            write.PutSealed(rows, key, value);
        if (write.Failed()) return;
    }
    if (!m_addition) return;
    write.Put(m_writer->Used().meta, codec::kCommitKey, codec::NumberBytes(m_addition->commit));
    history::Append(write, m_writer->Used(), *m_addition, m_writer->Limits());
}

std::optional<Error> Store::Transaction::Impl::Commit()
{
    if (!m_open) Fail(ErrorTag::kOperationFailed, "it has ended before");
    if (!m_error) m_error = m_writer->Do(kCommitting, [this](WriteTransaction& write) { Apply(write); });
    const bool wasOpen = m_open;
    End();
    auto error = m_error;
    if (wasOpen && !m_error) Fail(ErrorTag::kOperationFailed, "it has ended before");  // for later calls
    return error;
}

Store::Transaction::Transaction(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
Store::Transaction::Transaction(Transaction&&) noexcept = default;
Store::Transaction::~Transaction() = default;

void Store::Transaction::Put(const RowKey& key, const Row& row) { m_impl->Put(key, row); }
void Store::Transaction::Erase(const RowKey& key) { m_impl->Erase(key); }
void Store::Transaction::Append(const HistoryEntry& entry) { m_impl->Append(entry); }
std::optional<Error> Store::Transaction::Commit() { return m_impl->Commit(); }

}  // namespace cdb
