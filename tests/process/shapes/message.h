// SPDX-License-Identifier: Apache-2.0
// NETCONF messages as trees that can be bent out of shape: valid ones from a small grammar, and their text.
// Nothing here checks or escapes anything: what is written is what is sent.

#ifndef SHAPES_MESSAGE_H
#define SHAPES_MESSAGE_H

#include <string>
#include <utility>
#include <vector>

#include "support/dice.h"

namespace shapes {

using support::Dice;

struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes{};  // declarations of namespaces too
    std::string text{};                                             // before the children, as it is
    std::vector<Element> children{};
};

void AppendText(const Element& element, std::string& out);
std::string TextOf(const Element& element);

/// The parts of messages that shapes are applied to.
enum class Place { kRpc, kOperation, kData, kContainer, kEntry, kKey, kLeaf };

/// A valid edit with two collectors and an interface; a get-config with a filter for them; a get with a
/// filter for the state of a collector and an interface.
Element EditMessage();
Element FilterMessage();
Element StateFilterMessage();

/// Any valid message.
Element DrawMessage(Dice& dice);

/// The element of that kind in one of the first three messages, by its parent; the parent is null for the
/// <rpc>.
struct Found {
    Element* parent = nullptr;
    std::size_t index = 0;
};
Found Find(Element& rpc, Place place);

/// An element of any message.
Found DrawElement(Element& rpc, Dice& dice);

}  // namespace shapes

#endif
