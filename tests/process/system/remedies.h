// SPDX-License-Identifier: Apache-2.0
// Which remedies the diagnosis prints, as its source has them.

#ifndef SYSTEM_REMEDIES_H
#define SYSTEM_REMEDIES_H

#include <string>
#include <vector>

namespace system_tests {

struct RemedyText {
    std::string sentence;  // the whole text, with fmt's places
    std::string remedy;    // what it tells to do: a command of the shell, of ip, or something to start
};

/// Those of src/manager/status/problem.cpp.
std::vector<RemedyText> RemediesInTheCode();

}  // namespace system_tests

#endif
