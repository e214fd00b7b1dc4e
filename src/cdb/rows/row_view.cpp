// SPDX-License-Identifier: Apache-2.0
#include "cdb/rows/row_view.h"

#include <cstring>
#include <utility>
#include <vector>

#include "cdb/rows/environment.h"

namespace cdb {
namespace {

using Pass = Environment::Pass;

/// The keys in the rest of a row's key; each ends with a NUL.
void SplitInPlace(std::string_view rest, std::vector<std::string_view>& keys)
{
    keys.clear();
    while (!rest.empty()) {
        const auto* end = static_cast<const char*>(std::memchr(rest.data(), '\0', rest.size()));
        const std::size_t size = end == nullptr ? rest.size() : static_cast<std::size_t>(end - rest.data());
        keys.push_back(rest.substr(0, size));
        rest.remove_prefix(std::min(size + 1, rest.size()));
    }
}

/// The rows of a list in ascending order of their keys are in the order of their parents too. So if parents
/// are visited in order, the cursor that has passed one parent's entries is at the next one's.
struct ListCursor {
    NodeId list = kNoNode;
    std::unique_ptr<Pass> pass;
    bool busy = false;    // in use by a visit
    bool placed = false;  // at the first row behind those that begin with pass->prefix
    bool ended = false;   // no row is left
    MDB_val key{};        // of the row at the cursor
    MDB_val value{};
};

class StoredRows final : public RowView {
public:
    StoredRows(std::shared_ptr<Environment> environment, std::shared_ptr<const codec::RowKeys> keys)
        : m_environment(std::move(environment)),
          m_keys(std::move(keys)),
          m_reading(m_environment->BeginReading())
    {
    }

    ~StoredRows() override
    {
        if (m_get) m_reading->idlePasses.push_back(std::move(m_get));
        for (auto& cursor : m_cursors) m_reading->idlePasses.push_back(std::move(cursor->pass));
    }
    StoredRows(const StoredRows&) = delete;
    StoredRows& operator=(const StoredRows&) = delete;

    const Row* Get(NodeId node, std::span<const std::string> keys) override
    {
        if (!m_get) m_get = m_environment->TakePass(*m_reading);
        m_keys->Prefix(node, keys, m_get->prefix);
        MDB_val name = Bytes(m_get->prefix);
        MDB_val value{};
        const int code = mdb_get(m_reading->transaction, m_environment->rows, &name, &value);
        // A key longer than LMDB allows belongs to no row.
        if (code == MDB_NOTFOUND || code == MDB_BAD_VALSIZE) return nullptr;
        if (code != MDB_SUCCESS) m_environment->Fail("reading", code);
        m_environment->ReadRow(name, value, *m_get);
        return &m_get->row;
    }

    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override
    {
        ListCursor& cursor = CursorFor(list);
        const Visiting visiting(cursor);
        m_keys->Prefix(list, parentKeys, m_prefix);
        Place(cursor);
        Pass& pass = *cursor.pass;
        while (!cursor.ended && Text(cursor.key).starts_with(pass.prefix)) {
            SplitInPlace(Text(cursor.key).substr(pass.prefix.size()), pass.keyViews);
            m_environment->ReadRow(cursor.key, cursor.value, pass);
            if (!visit(pass.keyViews, pass.row)) return;
            Move(cursor, MDB_NEXT);
        }
        cursor.placed = true;
    }

private:
    /// Marks the cursor as used by one visit while it lives.
    class Visiting {
    public:
        explicit Visiting(ListCursor& cursor) : m_cursor(cursor) { cursor.busy = true; }
        ~Visiting() { m_cursor.busy = false; }
        Visiting(const Visiting&) = delete;
        Visiting& operator=(const Visiting&) = delete;

    private:
        ListCursor& m_cursor;
    };

    ListCursor& CursorFor(NodeId list)
    {
        for (auto& cursor : m_cursors)
            if (cursor->list == list && !cursor->busy) return *cursor;
        auto cursor = std::make_unique<ListCursor>();
        cursor->list = list;
        cursor->pass = m_environment->TakePass(*m_reading);
        m_cursors.push_back(std::move(cursor));
        return *m_cursors.back();
    }

    /// Puts the cursor at the first row that is not before m_prefix, and gives it this prefix.
    void Place(ListCursor& cursor)
    {
        std::string& before = cursor.pass->prefix;
        const bool onward = std::exchange(cursor.placed, false) && before < m_prefix &&
                            !std::string_view(m_prefix).starts_with(before);
        before.swap(m_prefix);
        const std::string& now = cursor.pass->prefix;
        // No rows lie between those of the previous prefix and the cursor.
        if (onward && (cursor.ended || Text(cursor.key) >= now)) return;
        cursor.key = Bytes(now);
        Move(cursor, MDB_SET_RANGE);
    }

    void Move(ListCursor& cursor, MDB_cursor_op how)
    {
        const int code = mdb_cursor_get(cursor.pass->cursor, &cursor.key, &cursor.value, how);
        cursor.ended = code != MDB_SUCCESS;
        if (cursor.ended && code != MDB_NOTFOUND) m_environment->Fail("reading", code);
    }

    std::shared_ptr<Environment> m_environment;
    std::shared_ptr<const codec::RowKeys> m_keys;
    Environment::ReadingPtr m_reading;
    std::unique_ptr<Pass> m_get;
    std::vector<std::unique_ptr<ListCursor>> m_cursors;
    std::string m_prefix;
};

}  // namespace

std::unique_ptr<RowView> MakeRowView(std::shared_ptr<Environment> environment,
                                     std::shared_ptr<const codec::RowKeys> keys)
{
    return std::make_unique<StoredRows>(std::move(environment), std::move(keys));
}

}  // namespace cdb
