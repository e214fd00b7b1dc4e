// SPDX-License-Identifier: Apache-2.0
// Reading the store.

#include "cdb/rows/reader.h"

#include "cdb/rows/environment.h"
#include "cdb/rows/row_view.h"
#include "cdb/rows/snapshot.h"

namespace cdb {

StoreReader::Snapshot::Snapshot(std::unique_ptr<SnapshotImpl> impl) : m_impl(std::move(impl)) {}
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
    return Snapshot(std::make_unique<SnapshotImpl>(m_impl->environment, m_impl->keys));
}

std::unique_ptr<RowView> MakeRowView(const StoreReader& store)
{
    return MakeRowView(store.m_impl->environment, store.m_impl->keys);
}

}  // namespace cdb
