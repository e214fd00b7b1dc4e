// SPDX-License-Identifier: Apache-2.0
// The seed of a table.

#include "net/links/address_table.h"

#include <random>

namespace net {

std::uint64_t UnforeseeableNumber()
{
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

}  // namespace net
