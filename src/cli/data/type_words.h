// SPDX-License-Identifier: Apache-2.0
// What a leaf takes, in an operator's words.

#ifndef CLI_DATA_TYPE_WORDS_H
#define CLI_DATA_TYPE_WORDS_H

#include <string>

struct ly_ctx;
struct lysc_node;
struct lysc_type;

namespace cli {

/// The type of a leaf or leaf-list; of a reference, the reference's own.
const lysc_type* TypeOf(const lysc_node* leaf);

/// "1..16777215 packets", "true or false", "IPv4 address", "text"; never empty.
std::string AllowedValues(const lysc_node* leaf);

/// Throws Error if the leaf's type refuses the value: what is wrong with it, and what to write.
void CheckValue(const ly_ctx* yang, const lysc_node* leaf, const std::string& value);

}  // namespace cli

#endif
