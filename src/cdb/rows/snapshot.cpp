// SPDX-License-Identifier: Apache-2.0
#include "cdb/rows/snapshot.h"

namespace cdb {

SnapshotImpl::SnapshotImpl(std::shared_ptr<Environment> environment,
                           std::shared_ptr<const codec::RowKeys> keys)
    : m_environment(std::move(environment)), m_keys(std::move(keys)), m_reading(m_environment->BeginReading())
{
}

SnapshotImpl::~SnapshotImpl() { m_environment->EndReading(std::move(m_reading)); }

std::uint64_t SnapshotImpl::Commit() const
{
    const auto bytes = m_environment->Meta(m_reading->transaction, codec::kCommitKey);
    return bytes ? codec::NumberOf(*bytes).value_or(0) : 0;
}

std::optional<Row> SnapshotImpl::Get(const RowKey& key)
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

std::size_t SnapshotImpl::Count(NodeId list, const std::vector<std::string>& parentKeys)
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

void SnapshotImpl::Scan(NodeId list, const std::vector<std::string>& parentKeys, std::size_t first,
                        const EntryVisitor& visit)
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

void SnapshotImpl::ScanAfter(NodeId list, const std::vector<std::string>& parentKeys,
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
void SnapshotImpl::ForEach(Environment::Pass& pass, const std::string& from, const Visit& visit)
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

SnapshotImpl::PassHold::PassHold(SnapshotImpl& snapshot)
    : m_reading(*snapshot.m_reading), m_pass(snapshot.m_environment->TakePass(m_reading))
{
}

SnapshotImpl::PassHold::~PassHold() { m_reading.idlePasses.push_back(std::move(m_pass)); }

}  // namespace cdb
