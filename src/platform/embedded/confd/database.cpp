// SPDX-License-Identifier: Apache-2.0
// The reads on one view of the store, the store of one connection, and the commit that a Pin holds its
// sessions at.

#include "platform/embedded/confd/database.h"

#include <algorithm>
#include <span>

#include "platform/embedded/confd/convert.h"

namespace embedded {
namespace {

/// Session numbers differ from kMaapiSocket.
constexpr int kFirstSession = 2;

/// A list of at most this many entries is kept when it is counted.
constexpr std::size_t kShortList = 64;

std::string Quoted(std::string_view path) { return "\"" + std::string(path) + "\""; }

std::span<const std::string> OwnKeys(const EntryLayout& layout, const std::vector<std::string>& keys)
{
    const std::size_t own = std::min(layout.KeyCount(), keys.size());
    return std::span(keys).last(own);
}

bool IsEntryLike(const cdb::SchemaNode& node)
{
    return node.kind == cdb::NodeKind::kList || node.kind == cdb::NodeKind::kPresenceContainer;
}

}  // namespace

ReadSession::ReadSession(SchemaCache& cache, std::shared_ptr<const cdb::StoreReader::Snapshot> view)
    : m_cache(cache),
      m_view(std::move(view)),
      m_resolve([this](cdb::NodeId list, const std::vector<std::string>& parentKeys, std::size_t index) {
          return KeysAt(list, parentKeys, index);
      })
{
}

int ReadSession::NumInstances(std::string_view text)
{
    const ReadPath& path = ResolvedList(text);
    m_counted.clear();
    m_countedPath.clear();
    m_view->Scan(path.node, path.keys, 0, [this](const std::vector<std::string>& keys, const cdb::Row& row) {
        m_counted.push_back({keys, row});
        return m_counted.size() <= kShortList;
    });
    if (m_counted.empty() && !Exists(m_cache.schema[path.node].parent, path.keys))
        throw ClientError("the entry that holds the list " + Quoted(text) + " does not exist");
    if (m_counted.size() > kShortList) return static_cast<int>(m_view->Count(path.node, path.keys));
    m_countedPath = text;
    return static_cast<int>(m_counted.size());
}

int ReadSession::GetObjects(confd_value_t* values, int perEntry, int first, int count, std::string_view text)
{
    const ReadPath& path = ResolvedList(text);
    if (perEntry < 0 || first < 0 || count < 0) throw ClientError("a negative number of values or entries");
    const EntryLayout& layout = m_cache.LayoutOf(path.node);
    const auto width = static_cast<std::size_t>(perEntry);
    const auto wanted = static_cast<std::size_t>(count);
    const auto skipped = static_cast<std::size_t>(first);
    std::size_t filled = 0;
    const auto fill = [&](const std::vector<std::string>& keys, const cdb::Row& row) {
        if (filled < wanted) layout.Fill(keys, row, values + filled++ * width, width);
        return filled < wanted;
    };
    if (text == m_countedPath) {
        for (std::size_t i = skipped; i < m_counted.size() && filled < wanted; ++i)
            fill(m_counted[i].keys, m_counted[i].row);
    } else if (wanted > 0) {
        m_view->Scan(path.node, path.keys, skipped, fill);
    }
    if (filled < wanted) {
        for (std::size_t i = 0; i < filled * width; ++i) confd_free_value(&values[i]);
        throw ClientError("the list " + Quoted(text) + " has no " + std::to_string(count) + " entries from " +
                          std::to_string(first) + " on");
    }
    return static_cast<int>(layout.Size());
}

int ReadSession::GetObject(confd_value_t* values, int count, std::string_view text)
{
    const ReadPath& path = Resolved(text);
    const auto& node = m_cache.schema[path.node];
    if (node.kind == cdb::NodeKind::kLeaf || (node.kind == cdb::NodeKind::kList && !path.isEntry))
        throw ClientError(Quoted(text) + " is neither an entry nor a container");
    if (count < 0) throw ClientError("a negative number of values");
    const EntryLayout& layout = m_cache.LayoutOf(path.node);
    const cdb::Row row = RowOf(path.node, path.keys, text);
    layout.Fill(OwnKeys(layout, path.keys), row, values, static_cast<std::size_t>(count));
    return static_cast<int>(layout.Size());
}

void ReadSession::Get(confd_value_t* value, std::string_view text)
{
    const ReadPath& path = Resolved(text);
    const auto& leaf = m_cache.schema[path.node];
    if (leaf.kind != cdb::NodeKind::kLeaf) throw ClientError(Quoted(text) + " is no leaf");
    if (leaf.parent == cdb::kNoNode) throw ClientError(Quoted(text) + " does not exist");
    const EntryLayout& layout = m_cache.LayoutOf(leaf.parent);
    const cdb::Row row = RowOf(leaf.parent, path.keys, text);
    const confd_value_t read = layout.ValueOf(path.node, OwnKeys(layout, path.keys), row);
    if (read.type == C_NOEXISTS) throw ClientError(Quoted(text) + " does not exist");
    *value = read;
}

const ReadPath& ReadSession::Resolved(std::string_view path) { return m_cache.paths.Read(path, m_resolve); }

const ReadPath& ReadSession::ResolvedList(std::string_view text)
{
    const ReadPath& path = Resolved(text);
    if (m_cache.schema[path.node].kind != cdb::NodeKind::kList || path.isEntry)
        throw ClientError(Quoted(text) + " is no list");
    return path;
}

std::vector<std::string> ReadSession::KeysAt(cdb::NodeId list, const std::vector<std::string>& parentKeys,
                                             std::size_t index) const
{
    std::vector<std::string> found;
    m_view->Scan(list, parentKeys, index, [&found](const std::vector<std::string>& keys, const cdb::Row&) {
        found = keys;
        return false;
    });
    if (found.empty())
        throw ClientError("the list " + m_cache.schema.PathOf(list) + " has no entry " +
                          std::to_string(index) + ": does not exist");
    return found;
}

/// Whether every ancestor that can be absent exists. `keys` are all keys on the path.
bool ReadSession::Exists(cdb::NodeId node, const std::vector<std::string>& keys) const
{
    while (node != cdb::kNoNode && !IsEntryLike(m_cache.schema[node])) node = m_cache.schema[node].parent;
    return node == cdb::kNoNode || m_view->Get({node, keys}).has_value();
}

cdb::Row ReadSession::RowOf(cdb::NodeId entry, const std::vector<std::string>& keys,
                            std::string_view path) const
{
    if (auto row = m_view->Get({entry, keys})) return *std::move(row);
    if (IsEntryLike(m_cache.schema[entry]) || !Exists(entry, keys))
        throw ClientError(Quoted(path) + " does not exist");
    return {};
}

void Database::Open(const std::string& directory)
{
    m_sessions.clear();
    m_pinned.reset();
    m_store.reset();  // first: a process may not have one store open twice
    m_store = std::make_unique<Store>(directory);
}

const cdb::SchemaTable& Database::Schema() const
{
    if (m_store == nullptr) throw ClientError("not connected to cdbd yet");
    return m_store->cache.schema;
}

Database::Pin::Pin(Database& database) : m_database(database) { m_database.m_pinned = m_database.View(); }

Database::Pin::~Pin() { m_database.m_pinned.reset(); }

std::shared_ptr<const cdb::StoreReader::Snapshot> Database::View() const
{
    if (m_store == nullptr) throw ClientError("not connected to cdbd yet");
    if (m_pinned != nullptr) return m_pinned;
    return std::make_shared<const cdb::StoreReader::Snapshot>(m_store->reader->Read());
}

int Database::OpenSession()
{
    auto view = View();
    int socket = kFirstSession;
    while (m_sessions.contains(socket)) ++socket;
    m_sessions.emplace(socket, std::make_unique<ReadSession>(m_store->cache, std::move(view)));
    return socket;
}

void Database::CloseSession(int socket) noexcept { m_sessions.erase(socket); }

ReadSession& Database::Session(int socket)
{
    const auto found = m_sessions.find(socket);
    if (found == m_sessions.end())
        throw ClientError("no read session has the socket " + std::to_string(socket));
    return *found->second;
}

}  // namespace embedded
