// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/edit_log.h"

#include <libyang/libyang.h>

#include <utility>

namespace cdb {
namespace {

void SetLeaf(lyd_node* leaf, const char* text, bool asDefault)
{
    // The value is canonical and of this leaf's type: libyang can't refuse it, only find it equal.
    static_cast<void>(lyd_change_term_canon(leaf, text));
    if (!asDefault) {
        ClearDefaultFlag(lyd_parent(leaf));
    } else {
        leaf->flags |= LYD_DEFAULT;
        RefreshDefaultFlag(lyd_parent(leaf));
    }
}

}  // namespace

void EditLog::Made(lyd_node* node)
{
    if (IsExplicit(node)) ClearDefaultFlag(lyd_parent(node));
    if (m_candidate.IsUnit(node->schema)) m_candidate.Stands(node);
    Step step;
    step.node = node;
    m_changes.push_back(std::move(step));
}

void EditLog::TakeOut(lyd_node* node)
{
    Step step;
    step.parent = lyd_parent(node);
    if (m_candidate.IsUnit(node->schema)) m_candidate.Leaves(node);
    lyd_unlink_tree(node);
    RefreshDefaultFlag(step.parent);
    step.taken.reset(node);
    m_changes.push_back(std::move(step));
}

void EditLog::Hide(const Place& unit)
{
    m_candidate.Hide(unit);
    Step step;
    step.hidden = std::make_unique<Place>(unit);
    m_changes.push_back(std::move(step));
}

void EditLog::Change(lyd_node* leaf, const char* text, bool asDefault)
{
    Step step;
    step.node = leaf;
    step.text = lyd_get_value(leaf);
    step.wasDefault = !IsExplicit(leaf);
    step.changed = true;
    SetLeaf(leaf, text, asDefault);
    m_changes.push_back(std::move(step));
}

void EditLog::RollBack()
{
    while (!m_changes.empty()) {
        TakeBack(m_changes.back());
        m_changes.pop_back();
    }
}

void EditLog::TakeBack(Step& step)
{
    if (step.hidden) {
        m_candidate.Show(*step.hidden);
    } else if (step.taken) {
        // It was there before, so the schema can't object.
        lyd_node* node = step.taken.release();
        static_cast<void>(lyd_insert_child(step.parent, node));
        if (IsExplicit(node)) ClearDefaultFlag(step.parent);
        if (m_candidate.IsUnit(node->schema)) m_candidate.Stands(node);
    } else if (step.changed) {
        SetLeaf(step.node, step.text.c_str(), step.wasDefault);
    } else {
        lyd_node* parent = lyd_parent(step.node);
        if (m_candidate.IsUnit(step.node->schema)) m_candidate.Leaves(step.node);
        lyd_free_tree(step.node);
        RefreshDefaultFlag(parent);
    }
}

}  // namespace cdb
