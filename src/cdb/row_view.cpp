#include "cdb/row_view.h"

namespace cdb {
namespace {

class StoreRows final : public RowView {
public:
    explicit StoreRows(StoreReader::Snapshot snapshot) : m_snapshot(std::move(snapshot)) {}

    const Row* Get(NodeId node, std::span<const std::string> keys) override
    {
        m_row = m_snapshot.Get({node, {keys.begin(), keys.end()}});
        return m_row ? &*m_row : nullptr;
    }

    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override
    {
        m_snapshot.Scan(list, {parentKeys.begin(), parentKeys.end()}, 0,
                        [&visit](const std::vector<std::string>& keys, const Row& row) {
                            return visit(std::vector<std::string_view>(keys.begin(), keys.end()), row);
                        });
    }

private:
    StoreReader::Snapshot m_snapshot;
    std::optional<Row> m_row;
};

}  // namespace

std::unique_ptr<RowView> MakeRowView(const Store& store) { return std::make_unique<StoreRows>(store.Read()); }

}  // namespace cdb
