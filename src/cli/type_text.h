// SPDX-License-Identifier: Apache-2.0
// What a leaf takes, in words, for messages and help.

#ifndef CLI_TYPE_TEXT_H
#define CLI_TYPE_TEXT_H

#include <string>

struct lysc_node;

namespace cli {

/// Of a leaf or leaf-list: "1..16777215 packets", "true or false", "text"; never empty.
std::string AllowedValues(const lysc_node* leaf);

/// Whether the type limits its values, so that AllowedValues helps after a refusal.
bool HasLimits(const lysc_node* leaf);

}  // namespace cli

#endif
