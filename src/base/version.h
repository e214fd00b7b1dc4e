// SPDX-License-Identifier: Apache-2.0
// The version of the programs, which are built together. Used for --version, and where processes greet each
// other.

#ifndef BASE_VERSION_H
#define BASE_VERSION_H

namespace base {

/// Of the project, as CMakeLists.txt has it.
const char* Version();

}  // namespace base

#endif
