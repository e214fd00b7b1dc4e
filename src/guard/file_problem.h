// SPDX-License-Identifier: Apache-2.0
// Why a configuration file is refused.

#ifndef GUARD_FILE_PROBLEM_H
#define GUARD_FILE_PROBLEM_H

#include <cstddef>
#include <string>

namespace guard {

struct FileProblem {
    std::size_t offset = 0;  // in bytes, where the check stopped
    std::string text;        // what is wrong and where in the data, without the place in the text
};

}  // namespace guard

#endif
