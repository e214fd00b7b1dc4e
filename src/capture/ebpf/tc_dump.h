// SPDX-License-Identifier: Apache-2.0
// What hangs at the interfaces' traffic control, by rtnetlink (rtnetlink(7)): libbpf makes and removes
// filters, but can't list. Unlike opening a program by its number, this takes no privilege. Used by the
// clsact hooks only.

#ifndef CAPTURE_EBPF_TC_DUMP_H
#define CAPTURE_EBPF_TC_DUMP_H

#include <cstdint>
#include <string>
#include <vector>

namespace capture {

/// A filter that is an eBPF program.
struct TcFilter {
    std::uint32_t handle = 0;
    std::string name;           // that it was attached with, which begins with the program's; may be empty
    std::uint32_t program = 0;  // the kernel's number of it; 0: not told

    bool operator==(const TcFilter&) const = default;
};

/// The interfaces that have a qdisc for filters of what enters ("clsact" or "ingress"). Empty where that
/// can't be told.
[[nodiscard]] std::vector<int> InterfacesWithFilters();

/// The kind of that qdisc at the interface; empty where there is none, or no such interface.
[[nodiscard]] std::string FilterQdisc(int ifIndex);

/// Appends the eBPF filters of this priority at one of its hooks. 0 also where there is no qdisc or no such
/// interface, else the error, negative, by which they are not all told.
[[nodiscard]] int ListFilters(int ifIndex, bool egress, std::uint32_t priority, std::vector<TcFilter>& found);

/// Whether the interface's clsact qdisc has no filter of anybody. False where that can't be told.
[[nodiscard]] bool ClsactIsEmpty(int ifIndex);

}  // namespace capture

#endif
