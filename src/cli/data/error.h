// SPDX-License-Identifier: Apache-2.0
// What ends a command: one text for the operator. Thrown by every part of the shell, printed in one
// place (shell.cpp).

#ifndef CLI_DATA_ERROR_H
#define CLI_DATA_ERROR_H

#include <stdexcept>

namespace cli {

/// Names the thing that is wrong and the remedy, if there is one; without "error:" and newline.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace cli

#endif
