// SPDX-License-Identifier: Apache-2.0
#include "manager/service/operation.h"

#include <arpa/inet.h>

namespace manager {

std::string AddressText(std::uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    in_addr value{};
    value.s_addr = address;
    ::inet_ntop(AF_INET, &value, text, sizeof text);
    return text;
}

}  // namespace manager
