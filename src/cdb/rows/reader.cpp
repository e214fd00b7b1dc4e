// SPDX-License-Identifier: Apache-2.0
#include "cdb/rows/reader.h"

#include "cdb/rows/environment.h"
#include "cdb/rows/row_view.h"

namespace cdb {

using Snapshot = StoreReader::Snapshot;

struct Snapshot::Impl {
    Impl(std::shared_ptr<Environment> from, std::shared_ptr<const codec::RowKeys> rowKeys)
        : environment(std::move(from)), keys(std::move(rowKeys)), reading(environment->BeginReading())
    {
    }

    /// A cursor and its scratch memory for one pass. Passes nest: a visitor may scan too.
    class PassHold {
    public:
        explicit PassHold(Impl& snapshot)
            : m_reading(*snapshot.reading), m_pass(snapshot.environment->TakePass(m_reading))
        {
        }
        ~PassHold() { m_reading.idlePasses.push_back(std::move(m_pass)); }
        PassHold(const PassHold&) = delete;
        PassHold& operator=(const PassHold&) = delete;
        Environment::Pass& operator*() const { return *m_pass; }
        Environment::Pass* operator->() const { return m_pass.get(); }

    private:
        Environment::Reading& m_reading;
        std::unique_ptr<Environment::Pass> m_pass;
    };

    /// Visits the rows under the pass's prefix, from the first one that is not before `from`, until `visit`
    /// returns false.
    template <typename Visit>
    void ForEach(Environment::Pass& pass, const std::string& from, const Visit& visit) const
    {
        MDB_val key = Bytes(from);
        MDB_val value{};
        int code = mdb_cursor_get(pass.cursor, &key, &value, MDB_SET_RANGE);
        while (code == MDB_SUCCESS && Text(key).starts_with(pass.prefix)) {
            if (!visit(key, value)) return;
            code = mdb_cursor_get(pass.cursor, &key, &value, MDB_NEXT);
        }
        if (code != MDB_SUCCESS && code != MDB_NOTFOUND) environment->Fail("reading", code);
    }

    /// Shows the visitor the row as an entry below the pass's prefix.
    bool Show(const MDB_val& key, const MDB_val& value, Environment::Pass& pass,
              const EntryVisit& visit) const
    {
        codec::RowKeys::Split(Text(key).substr(pass.prefix.size()), pass.keys);
        environment->ReadRow(key, value, pass);
        return visit(pass.keys, pass.row);
    }

    std::shared_ptr<Environment> environment;
    std::shared_ptr<const codec::RowKeys> keys;
    Environment::ReadingPtr reading;
};

Snapshot::Snapshot(std::shared_ptr<Environment> environment, std::shared_ptr<const codec::RowKeys> keys)
    : m_impl(std::make_unique<Impl>(std::move(environment), std::move(keys)))
{
}
Snapshot::Snapshot(Snapshot&&) noexcept = default;
Snapshot& Snapshot::operator=(Snapshot&&) noexcept = default;
Snapshot::~Snapshot() = default;

std::uint64_t Snapshot::Commit() const
{
    const auto bytes = m_impl->environment->Meta(m_impl->reading->transaction, codec::kCommitKey);
    return bytes ? codec::NumberOf(*bytes).value_or(0) : 0;
}

std::optional<Row> Snapshot::Get(const RowKey& key) const
{
    Impl::PassHold pass(*m_impl);
    m_impl->keys->Prefix(key.node, key.keys, pass->prefix);
    MDB_val name = Bytes(pass->prefix);
    MDB_val value{};
    const auto& environment = *m_impl->environment;
    const int code = mdb_get(m_impl->reading->transaction, environment.rows, &name, &value);
    if (code == MDB_NOTFOUND) return std::nullopt;
    if (code != MDB_SUCCESS) environment.Fail("reading", code);
    environment.ReadRow(name, value, *pass);
    return pass->row;
}

std::size_t Snapshot::Count(NodeId list, const std::vector<std::string>& parentKeys) const
{
    Impl::PassHold pass(*m_impl);
    std::size_t count = 0;
    m_impl->keys->Prefix(list, parentKeys, pass->prefix);
    m_impl->ForEach(*pass, pass->prefix, [&count](const MDB_val&, const MDB_val&) {
        ++count;
        return true;
    });
    return count;
}

void Snapshot::Scan(NodeId list, const std::vector<std::string>& parentKeys, std::size_t first,
                    const EntryVisit& visit) const
{
    Impl::PassHold pass(*m_impl);
    std::size_t index = 0;
    m_impl->keys->Prefix(list, parentKeys, pass->prefix);
    m_impl->ForEach(*pass, pass->prefix, [&](const MDB_val& key, const MDB_val& value) {
        return index++ < first || m_impl->Show(key, value, *pass, visit);
    });
}

void Snapshot::ScanAfter(NodeId list, const std::vector<std::string>& parentKeys,
                         const std::vector<std::string>& after, const EntryVisit& visit) const
{
    Impl::PassHold pass(*m_impl);
    m_impl->keys->Prefix(list, parentKeys, pass->prefix);
    std::vector<std::string> keys(parentKeys);
    keys.insert(keys.end(), after.begin(), after.end());
    std::string from;
    m_impl->keys->Prefix(list, keys, from);
    m_impl->ForEach(*pass, from, [&](const MDB_val& key, const MDB_val& value) {
        return Text(key) == from || m_impl->Show(key, value, *pass, visit);
    });
}

class StoreReader::Impl {
public:
    explicit Impl(const std::filesystem::path& directory)
        : environment(std::make_shared<Environment>(directory, Environment::Access::kRead, 0))
    {
        environment->UseDatabases();
        const auto reading = environment->BeginReading();
        keys = std::make_shared<const codec::RowKeys>(StoredSchema(*environment, reading->transaction));
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

Snapshot StoreReader::Read() const { return {m_impl->environment, m_impl->keys}; }

std::unique_ptr<RowView> MakeRowView(const StoreReader& store)
{
    return MakeRowView(store.m_impl->environment, store.m_impl->keys);
}

}  // namespace cdb
