#include "cdb/tree_sync.h"

#include <libyang/libyang.h>

#include <new>
#include <string_view>

namespace cdb {
namespace {

class Synchronizer {
public:
    explicit Synchronizer(const Schema& schema) : m_schema(schema) {}

    void Below(lyd_node* node, const lyd_node* model, const Touched::Node& touched)
    {
        if (touched.leaves) Leaves(node, model);
        for (const auto& [place, deeper] : touched.below) {
            const auto [own, wanted] = FindBoth(m_schema, lyd_child(node), lyd_child(model), place);
            if (own != nullptr && wanted != nullptr && !deeper.whole)
                Below(own, wanted, deeper);
            else
                Replace(own, wanted, node);
        }
    }

    void Whole(lyd_node* node, const lyd_node* model)
    {
        while (lyd_node* child = lyd_child(node)) lyd_free_tree(child);
        for (const lyd_node* child = lyd_child(model); child != nullptr; child = child->next)
            Copy(child, node);
        Flag(node, model);
    }

private:
    void Leaves(lyd_node* node, const lyd_node* model)
    {
        const auto& table = m_schema.Table();
        for (const NodeId id : table[m_schema.IdOf(node->schema)].children) {
            if (table[id].kind != NodeKind::kLeaf || table[id].isKey) continue;
            const lysc_node* leaf = m_schema.NodeOf(id);
            lyd_node* own = FindSingle(lyd_child(node), leaf);
            const lyd_node* wanted = FindSingle(lyd_child(model), leaf);
            if (own == nullptr || wanted == nullptr)
                Replace(own, wanted, node);
            else
                Change(own, wanted);
        }
        Flag(node, model);
    }

    static void Change(lyd_node* own, const lyd_node* wanted)
    {
        const char* text = lyd_get_value(wanted);
        // The same type has stored this canonical text before: it can't be refused.
        if (std::string_view(lyd_get_value(own)) != text) static_cast<void>(lyd_change_term_canon(own, text));
        own->flags = (own->flags & ~kDefault) | (wanted->flags & kDefault);
    }

    void Replace(lyd_node* own, const lyd_node* wanted, lyd_node* parent)
    {
        if (own != nullptr) lyd_free_tree(own);
        if (wanted != nullptr) Copy(wanted, parent);
        const lyd_node* model = wanted != nullptr ? lyd_parent(wanted) : nullptr;
        if (model != nullptr)
            Flag(parent, model);
        else
            RefreshDefaultFlag(parent);
    }

    static void Copy(const lyd_node* node, lyd_node* parent)
    {
        lyd_node* copy = nullptr;
        if (lyd_dup_single(node, reinterpret_cast<lyd_node_inner*>(parent), LYD_DUP_RECURSIVE, &copy) !=
            LY_SUCCESS)
            throw std::bad_alloc();
    }

    /// The containers from here up are flagged as default where the model's are.
    static void Flag(lyd_node* node, const lyd_node* model)
    {
        for (; node != nullptr; node = lyd_parent(node), model = lyd_parent(model))
            node->flags = (node->flags & ~kDefault) | (model->flags & kDefault);
    }

    static constexpr std::uint32_t kDefault = LYD_DEFAULT;
    const Schema& m_schema;
};

}  // namespace

void Synchronize(const Schema& schema, lyd_node* tree, const lyd_node* model, const Touched& touched)
{
    if (touched.Empty()) return;
    Synchronizer synchronizer(schema);
    if (touched.Root().whole) {
        synchronizer.Whole(tree, model);
        return;
    }
    for (const auto& [place, node] : touched.Root().below) {
        const auto [own, wanted] = FindBoth(schema, tree, model, place);
        if (node.whole)
            synchronizer.Whole(own, wanted);
        else
            synchronizer.Below(own, wanted, node);
    }
}

}  // namespace cdb
