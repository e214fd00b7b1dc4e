// SPDX-License-Identifier: Apache-2.0
// A node's place in the data, and the words that lead there.

#ifndef CLI_DATA_PLACE_H
#define CLI_DATA_PLACE_H

#include <optional>
#include <string>
#include <vector>

struct ly_ctx;
struct lysc_node;

namespace cli {

/// One node on the way from the top of the data.
struct Step {
    const lysc_node* schema = nullptr;
    std::vector<std::string> keys;  // of a list's entry; empty for other nodes and for the list itself
};

/// A node's place in the data; no steps: the whole configuration.
struct Place {
    std::vector<Step> steps;
    std::optional<std::string> value;  // of the leaf or leaf-list at the end, if one was given
};

/// The container whose name paths leave out: `config` of switch-config. Throws Error if the modules lack it.
const lysc_node* RootContainer(const ly_ctx* yang);

/// The words that lead to the place.
std::vector<std::string> WordListOf(const Place& place);
/// The same, for messages.
std::string WordsOf(const Place& place);

}  // namespace cli

#endif
