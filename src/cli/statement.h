// SPDX-License-Identifier: Apache-2.0
// The words of one data node, shared by everything that prints configuration.

#ifndef CLI_STATEMENT_H
#define CLI_STATEMENT_H

#include <string>

struct lyd_node;

namespace cli {

/// Whether the node is the container that paths leave out.
bool IsRoot(const lyd_node* node);

/// A leaf or a leaf-list's value.
bool IsLeafNode(const lyd_node* node);

/// Whether the node says something: leaves, list entries and presence containers do, other containers if
/// something below them does.
bool Counts(const lyd_node* node);

/// Appends the node's name and, for a list's entry, its keys.
void AppendHead(const lyd_node* node, std::string& out);

/// Appends a blank and the leaf's value; nothing for a leaf that has none.
void AppendValue(const lyd_node* node, std::string& out);

}  // namespace cli

#endif
