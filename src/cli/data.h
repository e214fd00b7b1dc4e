// SPDX-License-Identifier: Apache-2.0
// Data trees of libyang: their ownership, reading them from replies, printing them.

#ifndef CLI_DATA_H
#define CLI_DATA_H

#include <string>
#include <string_view>
#include <vector>

#include "cdb/schema/libyang_owner.h"

namespace cli {

struct Place;

/// All top-level siblings; null is a tree without data.
using Tree = cdb::TreePtr;

/// The data of a reply, as it stands in <data>. Throws Error if the YANG modules here do not know it.
Tree ParseReply(const ly_ctx* yang, const std::string& xml);

/// The instances of the place's last node, in the tree's order; empty for a place without steps.
std::vector<const lyd_node*> NodesAt(const lyd_node* tree, const Place& place);

/// RFC 7951, one document, with line ends.
std::string ToJson(const lyd_node* tree);
std::string ToXml(const lyd_node* tree);
/// For requests: without blanks between the elements.
std::string ToCompactXml(const lyd_node* tree);

/// Whether the node is a key of its list's entry.
bool IsKeyNode(const lyd_node* node);

/// The last complaint of libyang, with the data's path if it has one.
std::string LastMessage(const ly_ctx* yang);

}  // namespace cli

#endif
