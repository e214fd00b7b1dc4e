#include "cdb/compare_undo.h"

#include <libyang/libyang.h>

#include <new>

namespace cdb {
namespace {

bool IsSettled(const UndoEdit::At* at)
{
    for (; at != nullptr; at = at->above)
        if (at->settled) return true;
    return false;
}

}  // namespace

void UndoEdit::Restore(At* above, const lyd_node* before)
{
    if (!IsSettled(above)) Copy(above, before, true);
}

void UndoEdit::Remove(At* above, const lyd_node* now)
{
    if (IsSettled(above)) return;
    lyd_node* node = Copy(above, now, false);
    node->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
    if (lyd_new_meta(m_schema.Context(), node, nullptr, "ietf-netconf:operation", "remove", 0, nullptr) !=
        LY_SUCCESS)
        throw FatalError("ietf-netconf is not loaded: " + LastMessage(m_schema.Context()));
}

std::string UndoEdit::Text() const
{
    if (!m_root) return {};
    char* text = nullptr;
    const std::uint32_t options = LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS;
    if (lyd_print_mem(&text, m_root.get(), LYD_XML, options) != LY_SUCCESS) throw std::bad_alloc();
    std::string result = text != nullptr ? text : "";
    free(text);
    return result;
}

lyd_node* UndoEdit::Copy(At* above, const lyd_node* node, bool whole)
{
    auto* parent = reinterpret_cast<lyd_node_inner*>(Way(above));
    const std::uint32_t options = LYD_DUP_NO_META | (whole ? LYD_DUP_RECURSIVE : 0);
    lyd_node* copy = nullptr;
    if (lyd_dup_single(node, parent, options, &copy) != LY_SUCCESS) throw std::bad_alloc();
    if (parent != nullptr) return copy;
    lyd_node* first = m_root.release();
    if (lyd_insert_sibling(first, copy, &first) != LY_SUCCESS) throw std::bad_alloc();
    m_root.reset(first);
    return copy;
}

lyd_node* UndoEdit::Way(At* at)
{
    if (at == nullptr) return nullptr;
    if (at->made == nullptr) {
        at->made = Copy(at->above, at->data, false);
        at->made->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
    }
    return at->made;
}

}  // namespace cdb
