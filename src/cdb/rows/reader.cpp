// SPDX-License-Identifier: Apache-2.0
// Reading the store.

#include "cdb/rows/environment.h"
#include "cdb/rows/row_view.h"
#include "cdb/rows/snapshot.h"

namespace cdb {

StoreReader::Snapshot::Impl::Impl(std::shared_ptr<Environment> environment,
                                  std::shared_ptr<const codec::RowKeys> keys)
    : m_environment(std::move(environment)), m_keys(std::move(keys)), m_reading(m_environment->BeginReading())
{
}

StoreReader::Snapshot::Impl::~Impl() { m_environment->EndReading(std::move(m_reading)); }

std::uint64_t StoreReader::Snapshot::Impl::Commit() const
{
    const auto bytes = m_environment->Meta(m_reading->transaction, codec::kCommitKey);
    return bytes ? codec::NumberOf(*bytes).value_or(0) : 0;
}

std::optional<Row> StoreReader::Snapshot::Impl::Get(const RowKey& key)
{
    PassHold pass(*this);
    m_keys->Prefix(key.node, key.keys, pass->prefix);
    MDB_val name = Bytes(pass->prefix);
    MDB_val value{};
    const int code = mdb_get(m_reading->transaction, m_environment->rows, &name, &value);
    if (code == MDB_NOTFOUND) return std::nullopt;
    if (code != MDB_SUCCESS) m_environment->Fail("reading", code);
    m_environment->ReadRow(name, value, *pass);
    return pass->row;
}

std::size_t StoreReader::Snapshot::Impl::Count(NodeId list, const std::vector<std::string>& parentKeys)
{
    PassHold pass(*this);
    std::size_t count = 0;
    m_keys->Prefix(list, parentKeys, pass->prefix);
    ForEach(*pass, pass->prefix, [&count](const MDB_val&, const MDB_val&) {
        ++count;
        return true;
    });
    return count;
}

void StoreReader::Snapshot::Impl::Scan(NodeId list, const std::vector<std::string>& parentKeys,
                                       std::size_t first, const EntryVisitor& visit)
{
    PassHold pass(*this);
    std::size_t index = 0;
    m_keys->Prefix(list, parentKeys, pass->prefix);
    ForEach(*pass, pass->prefix, [&](const MDB_val& key, const MDB_val& value) {
        if (index++ < first) return true;
        codec::RowKeys::Split(Text(key).substr(pass->prefix.size()), pass->keys);
        m_environment->ReadRow(key, value, *pass);
        return visit(pass->keys, pass->row);
    });
}

void StoreReader::Snapshot::Impl::ScanAfter(NodeId list, const std::vector<std::string>& parentKeys,
                                            const std::vector<std::string>& after, const EntryVisitor& visit)
{
    PassHold pass(*this);
    m_keys->Prefix(list, parentKeys, pass->prefix);
    std::vector<std::string> keys(parentKeys);
    keys.insert(keys.end(), after.begin(), after.end());
    std::string from;
    m_keys->Prefix(list, keys, from);
    ForEach(*pass, from, [&](const MDB_val& key, const MDB_val& value) {
        if (Text(key) == from) return true;
        codec::RowKeys::Split(Text(key).substr(pass->prefix.size()), pass->keys);
        m_environment->ReadRow(key, value, *pass);
        return visit(pass->keys, pass->row);
    });
}

template <typename Visit>
void StoreReader::Snapshot::Impl::ForEach(Environment::Pass& pass, const std::string& from,
                                          const Visit& visit)
{
    MDB_val key = Bytes(from);
    MDB_val value{};
    int code = mdb_cursor_get(pass.cursor, &key, &value, MDB_SET_RANGE);
    while (code == MDB_SUCCESS && Text(key).starts_with(pass.prefix)) {
        if (!visit(key, value)) return;
        code = mdb_cursor_get(pass.cursor, &key, &value, MDB_NEXT);
    }
    if (code != MDB_SUCCESS && code != MDB_NOTFOUND) m_environment->Fail("reading", code);
}

StoreReader::Snapshot::Impl::PassHold::PassHold(Impl& snapshot)
    : m_reading(*snapshot.m_reading), m_pass(snapshot.m_environment->TakePass(m_reading))
{
}

StoreReader::Snapshot::Impl::PassHold::~PassHold() { m_reading.idlePasses.push_back(std::move(m_pass)); }

StoreReader::Snapshot::Snapshot(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
StoreReader::Snapshot::Snapshot(Snapshot&&) noexcept = default;
StoreReader::Snapshot& StoreReader::Snapshot::operator=(Snapshot&&) noexcept = default;
StoreReader::Snapshot::~Snapshot() = default;

std::uint64_t StoreReader::Snapshot::Commit() const { return m_impl->Commit(); }

std::optional<Row> StoreReader::Snapshot::Get(const RowKey& key) const { return m_impl->Get(key); }

std::size_t StoreReader::Snapshot::Count(NodeId list, const std::vector<std::string>& parentKeys) const
{
    return m_impl->Count(list, parentKeys);
}

void StoreReader::Snapshot::Scan(
    NodeId list, const std::vector<std::string>& parentKeys, std::size_t first,
    const std::function<bool(const std::vector<std::string>& keys, const Row& row)>& visit) const
{
    m_impl->Scan(list, parentKeys, first, visit);
}

void StoreReader::Snapshot::ScanAfter(
    NodeId list, const std::vector<std::string>& parentKeys, const std::vector<std::string>& after,
    const std::function<bool(const std::vector<std::string>& keys, const Row& row)>& visit) const
{
    m_impl->ScanAfter(list, parentKeys, after, visit);
}

class StoreReader::Impl {
public:
    explicit Impl(const std::filesystem::path& directory)
        : environment(std::make_shared<Environment>(directory, Environment::Access::kRead, 0))
    {
        environment->UseDatabases();
        auto reading = environment->BeginReading();
        keys = std::make_shared<const codec::RowKeys>(StoredSchema(*environment, reading->transaction));
        environment->EndReading(std::move(reading));
    }

    std::shared_ptr<Environment> environment;
    std::shared_ptr<const codec::RowKeys> keys;
};

std::unique_ptr<StoreReader> StoreReader::Open(const std::filesystem::path& directory)
{
    return std::unique_ptr<StoreReader>(new StoreReader(std::make_unique<Impl>(directory)));
}

StoreReader::StoreReader(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
StoreReader::~StoreReader() = default;

const SchemaTable& StoreReader::Schema() const { return m_impl->keys->Schema(); }

StoreReader::Snapshot StoreReader::Read() const
{
    return Snapshot(std::make_unique<Snapshot::Impl>(m_impl->environment, m_impl->keys));
}

std::unique_ptr<RowView> MakeRowView(const StoreReader& store)
{
    return MakeRowView(store.m_impl->environment, store.m_impl->keys);
}

}  // namespace cdb
