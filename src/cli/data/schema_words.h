// SPDX-License-Identifier: Apache-2.0
// The configuration's paths as words: "oam sflow interface eth1 sampling-rate". The root container is left
// out; the keys of a list's entry follow the list's name. Reads no data and sends nothing.

#ifndef CLI_DATA_SCHEMA_WORDS_H
#define CLI_DATA_SCHEMA_WORDS_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
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

/// Each throws Error for a word that is not known (and names what is possible there), a key or value that its
/// type refuses, a missing or superfluous word.
///
/// A leaf with its value, a list's entry, or a presence container.
Place PlaceToSet(const ly_ctx* yang, std::span<const std::string> words);
/// A leaf, a leaf-list's value, a list's entry or a container.
Place PlaceToDelete(const ly_ctx* yang, std::span<const std::string> words);
/// Any node, a list without its keys among them; no words: everything.
Place PlaceToShow(const ly_ctx* yang, std::span<const std::string> words);

/// The words of the place, for messages.
std::string WordsOf(const Place& place);

/// What the nodes below are called, in schema order: "agent, collector, interface".
std::string PossibleBelow(const ly_ctx* yang, const lysc_node* parent);

}  // namespace cli

#endif
