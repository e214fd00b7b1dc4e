// SPDX-License-Identifier: Apache-2.0
// The ways in which a message is bent out of shape: each makes one element about so many bytes large, in its
// own way. Used for the table (each shape at each place) and for messages bent at random.

#ifndef SHAPES_SHAPE_H
#define SHAPES_SHAPE_H

#include <cstddef>
#include <span>
#include <string>

#include "shapes/message.h"

namespace shapes {

struct Shape {
    const char* name;
    void (*bend)(Element& rpc, const Found& at, std::size_t bytes);
    /// What it makes is as large as it is right: what it costs is that of so much data.
    bool isData = false;
};

std::span<const Shape> Shapes();

/// A valid message with up to three small changes and up to three shapes at any elements, and maybe some
/// bytes changed or the end cut off. `what` gets their names.
std::string DrawBent(Dice& dice, std::size_t bytes, std::string& what);

/// A valid message with that shape there; empty if the message has no such element or another shape stands
/// for it.
std::string Bent(Element rpc, const Shape& shape, Place place, std::size_t bytes);

}  // namespace shapes

#endif
