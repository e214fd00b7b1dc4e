// SPDX-License-Identifier: Apache-2.0
// The interfaces of the switch, configured or not, as text: what `show interfaces` prints.

#ifndef CLI_SCREENS_INTERFACES_TEXT_H
#define CLI_SCREENS_INTERFACES_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct lyd_node;

namespace cli {

/// What InterfacesTable needs, as the content of a filter's container `state`.
inline constexpr std::string_view kInterfacesState =
    "<oam><sflow><kernel-interface/><interface><name/><sampling-rate/><kernel-interface/><packet-source/>"
    "<problem/></interface><problem><subject>interface</subject></problem></sflow></oam>";

/// One row for each of the kernel's interfaces, and for each that is configured and that the kernel does not
/// have; in natural order. `state`: the container, or null. `width`: the characters of a line.
std::string InterfacesTable(const lyd_node* state, std::size_t width);

/// "2.5G", "100M"; bits a second.
std::string SpeedText(std::uint64_t bits);

}  // namespace cli

#endif
