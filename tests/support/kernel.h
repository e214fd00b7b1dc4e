// SPDX-License-Identifier: Apache-2.0
// What the kernel itself says of an interface: what has passed there, and who samples packets there. For
// tests and measurements that compare it with what the manager says. Of the namespace that the calling thread
// is in.

#ifndef TESTS_SUPPORT_KERNEL_H
#define TESTS_SUPPORT_KERNEL_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace support {

/// An interface in the kernel's own table; as its columns are.
struct KernelCounters {
    std::uint64_t rxBytes = 0, rxPackets = 0, rxErrors = 0, rxDropped = 0, rxFifo = 0, rxFrame = 0,
                  rxCompressed = 0, multicast = 0;
    std::uint64_t txBytes = 0, txPackets = 0, txErrors = 0, txDropped = 0;
};

/// Throws std::runtime_error if there is no such interface.
KernelCounters CountersOf(const std::string& device);
/// Packets that have entered by it.
inline std::uint64_t Received(const std::string& device) { return CountersOf(device).rxPackets; }

/// Programs at the interface's tcx ingress; negative, with errno set, where the kernel can't say.
int ProgramsAtTcx(std::uint32_t ifIndex);
/// Packet sockets bound to the interface, one line of the kernel's each.
std::string PacketSocketsAt(std::uint32_t ifIndex);

/// Empty if a source of packets ("ebpf-tcx", "ebpf-clsact", "packet-socket") is allowed, else why not: for
/// GTEST_SKIP. Asks the kernel, not the manager, so that what fails in the manager is no reason to skip.
std::string WhyNotSource(const std::string& source);

}  // namespace support

#endif
