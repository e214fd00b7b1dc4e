// What hangs at the interfaces' traffic control, by rtnetlink (rtnetlink(7)): libbpf makes and removes
// filters, but can't list. Used by the clsact hooks only.

#ifndef CAPTURE_EBPF_TC_DUMP_H
#define CAPTURE_EBPF_TC_DUMP_H

#include <cstdint>
#include <vector>

namespace capture {

/// The interfaces that have a clsact qdisc. Empty where that can't be told.
[[nodiscard]] std::vector<int> InterfacesWithClsact();

/// Whether the interface's clsact qdisc has no filter of anybody. False where that can't be told.
[[nodiscard]] bool ClsactIsEmpty(int ifIndex);

}  // namespace capture

#endif
