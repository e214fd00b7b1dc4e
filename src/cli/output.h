// SPDX-License-Identifier: Apache-2.0
// The form of what `show` commands print: text for people, or the data itself as JSON, XML or commands.

#ifndef CLI_OUTPUT_H
#define CLI_OUTPUT_H

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

#include "cli/command.h"

struct lyd_node;

namespace cli {

/// How a command's data reads as text.
using TextOf = std::function<std::string(const lyd_node* tree)>;

class Output {
public:
    virtual ~Output() = default;

    /// Prints the tree, which may be null: one document.
    virtual void Show(const lyd_node* tree, const TextOf& text) = 0;
};

/// `out` must outlive it.
std::unique_ptr<Output> MakeOutput(Format format, std::ostream& out);

}  // namespace cli

#endif
