// SPDX-License-Identifier: Apache-2.0
// Change sets by hand and at random, and what a walk reports as text.

#ifndef TESTS_UNIT_CDB_MODEL_CHANGE_SAMPLE_H
#define TESTS_UNIT_CDB_MODEL_CHANGE_SAMPLE_H

#include <random>
#include <string>
#include <vector>

#include "cdb/model/change_set.h"
#include "cdb/sample.h"

namespace change_sample {

using sample::Node;

inline cdb::ChangeNode Container(const std::string& path, std::vector<cdb::ChangeNode> children)
{
    return {Node(path), {}, cdb::ChangeOp::kNone, {}, std::move(children)};
}

inline cdb::ChangeNode Entry(const std::string& path, std::string key, cdb::ChangeOp op,
                             std::vector<cdb::ChangeNode> children)
{
    return {Node(path), {std::move(key)}, op, {}, std::move(children)};
}

inline cdb::ChangeNode Set(const std::string& path, cdb::Value value)
{
    return {Node(path), {}, cdb::ChangeOp::kValueSet, std::move(value), {}};
}

inline cdb::ChangeNode Gone(const std::string& path)
{
    return {Node(path), {}, cdb::ChangeOp::kDeleted, {}, {}};
}

inline cdb::ChangeSet Config(std::vector<cdb::ChangeNode> children)
{
    return {1, Container("/config", std::move(children))};
}

/// "/config/oam/sflow/collector{c1}/port set 7"
std::string Line(const std::vector<const cdb::ChangeNode*>& ancestry);

/// Any change that can be: every node with an operation of its kind, up to three entries a list.
cdb::ChangeSet RandomChanges(std::mt19937& random);

}  // namespace change_sample

#endif
