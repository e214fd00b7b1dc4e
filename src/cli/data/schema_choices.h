// SPDX-License-Identifier: Apache-2.0
// What may be typed next in a path of the configuration, for completion and help.

#ifndef CLI_DATA_SCHEMA_CHOICES_H
#define CLI_DATA_SCHEMA_CHOICES_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/data/place.h"

namespace cli {

/// A word that may come next.
struct Choice {
    std::string word;
    std::string help;      // one sentence or less
    bool isValue = false;  // not to be inserted: says what may be written there
};

enum class PathUse { kSet, kDelete, kShow, kEdit };

struct Choices {
    std::vector<Choice> words;
    /// The list whose entries' keys may stand here, besides.
    std::optional<Place> keysOf;
};

/// What may come behind the words; nothing where they lead nowhere. Throws nothing.
Choices ChoicesBehind(const ly_ctx* yang, std::span<const std::string> words, PathUse use);

/// The node's description up to the end of its first sentence, in one line.
std::string HelpOf(const lysc_node* node);

}  // namespace cli

#endif
