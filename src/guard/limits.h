// SPDX-License-Identifier: Apache-2.0
// The bounds of what a client may send, far beyond any sensible configuration.

#ifndef GUARD_LIMITS_H
#define GUARD_LIMITS_H

#include <cstddef>

#include "netconf/xml.h"

namespace guard {

struct Limits {
    /// The depth is small because libyang and the reader of filters recurse.
    netconf::XmlLimits xml{};
    std::size_t text = std::size_t{64} << 10;            // bytes of one leaf's value
    std::size_t filterElements = std::size_t{32} << 10;  // each is kept, and compared with the data
};

}  // namespace guard

#endif
