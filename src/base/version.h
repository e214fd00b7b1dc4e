// SPDX-License-Identifier: Apache-2.0
// The version of the programs, which are built together. Used for --version, and where processes greet each
// other.

#ifndef BASE_VERSION_H
#define BASE_VERSION_H

namespace base {

/// Such as "0.1.0".
const char* Version();

}  // namespace base

#endif
