// SPDX-License-Identifier: Apache-2.0
// Small changes of a message: each leaves most of it as it was, so that it gets past the first looks. The
// large ones are shapes (shape.h). Used for messages bent at random.

#ifndef SHAPES_MUTATION_H
#define SHAPES_MUTATION_H

#include <string>

#include "shapes/message.h"

namespace shapes {

/// One change of the tree; returns what it was.
std::string Mutate(Element& rpc, Dice& dice);

/// Some bytes of the text are others, are missing, or stand there twice.
void Scratch(std::string& text, Dice& dice);

}  // namespace shapes

#endif
