// SPDX-License-Identifier: Apache-2.0
// Lists the qdiscs and filters of interfaces by rtnetlink(7): libbpf makes and removes filters, but can't
// list them. Unlike opening a program by its number, this takes no privilege. Used by the clsact hooks only.

#ifndef CAPTURE_EBPF_TC_DUMP_H
#define CAPTURE_EBPF_TC_DUMP_H

#include <cstdint>
#include <string>
#include <vector>

namespace capture {

/// A filter that is an eBPF program.
struct TcFilter {
    std::uint32_t handle = 0;
    std::string name;           // given when it was attached; begins with the program's; may be empty
    std::uint32_t program = 0;  // the kernel's number of the program; 0: unknown

    bool operator==(const TcFilter&) const = default;
};

/// The interfaces that have a qdisc for filters of what enters ("clsact" or "ingress"). Empty on errors.
[[nodiscard]] std::vector<int> InterfacesWithFilters();

/// The kind of that qdisc at the interface; empty if there is none or no such interface, and on errors.
[[nodiscard]] std::string FilterQdisc(int ifIndex);

/// Appends the eBPF filters of this priority at one of the interface's hooks. Returns 0, also if there is no
/// qdisc or no such interface, or a negative errno if the list may be incomplete.
[[nodiscard]] int ListFilters(int ifIndex, bool egress, std::uint32_t priority, std::vector<TcFilter>& found);

/// Whether the interface's clsact qdisc has no filter at all. False on errors.
[[nodiscard]] bool ClsactIsEmpty(int ifIndex);

}  // namespace capture

#endif
