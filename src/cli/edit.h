// SPDX-License-Identifier: Apache-2.0
// The XML that commands send: an edit of one place, a filter for one place, a file's content as a whole.

#ifndef CLI_EDIT_H
#define CLI_EDIT_H

#include <string>

#include "cli/schema_words.h"

struct ly_ctx;
struct lyd_node;

namespace cli {

/// What stands inside <config> to give the place its value, or to create it.
std::string SetXml(const Place& place);

/// What stands inside <config> to delete the place. The database refuses it if there is no such place.
std::string DeleteXml(const Place& place);

/// A subtree filter (RFC 6241, section 6) that selects the place and what is below it.
std::string FilterXml(const Place& place);

/// What stands inside <config> to replace the root container, and each other top-level container that
/// the tree has, by what the tree has. Marks the tree's nodes.
std::string ReplaceXml(const ly_ctx* yang, lyd_node* tree);

}  // namespace cli

#endif
