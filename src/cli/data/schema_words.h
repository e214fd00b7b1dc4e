// SPDX-License-Identifier: Apache-2.0
// The configuration's paths as words: "oam sflow interface eth1 sampling-rate". The root container is left
// out; the keys of a list's entry follow the list's name. Reads no data and sends nothing.

#ifndef CLI_DATA_SCHEMA_WORDS_H
#define CLI_DATA_SCHEMA_WORDS_H

#include <span>
#include <string>
#include <vector>

#include "cli/data/place.h"

struct ly_ctx;

namespace cli {

/// Each throws Error for a word that is not known (and names what is possible there), a key or value that its
/// type refuses, a missing or superfluous word.
///
/// Leaves with their values, lists' entries, or presence containers. Behind a leaf and its value another leaf
/// beside it may follow, and a key may be written as a range (ranges.h): then there are several places, those
/// that share steps one behind the other. At least one.
std::vector<Place> PlacesToSet(const ly_ctx* yang, std::span<const std::string> words);
/// The same of leaves, leaf-lists' values, lists' entries or containers.
std::vector<Place> PlacesToDelete(const ly_ctx* yang, std::span<const std::string> words);
/// The same of any nodes, lists without their keys among them; no words: everything.
std::vector<Place> PlacesToShow(const ly_ctx* yang, std::span<const std::string> words);
/// A container or a list's entry, below which other paths may begin; no words: the whole.
Place PlaceToEdit(const ly_ctx* yang, std::span<const std::string> words);

}  // namespace cli

#endif
