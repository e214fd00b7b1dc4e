// SPDX-License-Identifier: Apache-2.0
// What the kernel itself says of an interface (see the header).

#include "support/kernel.h"

#include <linux/bpf.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {
namespace {

/// The smallest program that could be attached: it passes everything on. Negative if none is allowed.
int LoadProgram()
{
    std::array<bpf_insn, 2> program{};
    program[0].code = BPF_ALU64 | BPF_MOV | BPF_K;
    program[1].code = BPF_JMP | BPF_EXIT;
    bpf_attr load{};
    load.prog_type = BPF_PROG_TYPE_SCHED_CLS;
    load.insns = reinterpret_cast<std::uintptr_t>(program.data());
    load.insn_cnt = program.size();
    load.license = reinterpret_cast<std::uintptr_t>("GPL");
    return static_cast<int>(::syscall(SYS_bpf, BPF_PROG_LOAD, &load, sizeof load));
}

}  // namespace

KernelCounters CountersOf(const std::string& device)
{
    std::ifstream table("/proc/thread-self/net/dev");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string name;
        if (!std::getline(words >> std::ws, name, ':') || name != device) continue;
        KernelCounters counters;
        for (std::uint64_t* to :
             {&counters.rxBytes, &counters.rxPackets, &counters.rxErrors, &counters.rxDropped,
              &counters.rxFifo, &counters.rxFrame, &counters.rxCompressed, &counters.multicast,
              &counters.txBytes, &counters.txPackets, &counters.txErrors, &counters.txDropped})
            words >> *to;
        return counters;
    }
    throw std::runtime_error("the kernel has no counters of " + device);
}

int ProgramsAtTcx(std::uint32_t ifIndex)
{
    constexpr std::uint32_t kTcxIngress = 46;  // not in every linux/bpf.h yet
    bpf_attr query{};
    query.query.target_fd = ifIndex;  // it takes this place
    query.query.attach_type = kTcxIngress;
    if (::syscall(SYS_bpf, BPF_PROG_QUERY, &query, sizeof query) == 0)
        return static_cast<int>(query.query.prog_cnt);
    return errno == ENOENT ? 0 : -1;
}

std::string PacketSocketsAt(std::uint32_t ifIndex)
{
    // Columns: address, references, type, protocol, interface.
    std::ifstream table("/proc/thread-self/net/packet");
    std::string line, found;
    std::getline(table, line);  // the heading
    while (std::getline(table, line)) {
        std::istringstream words(line);
        std::string address, references, type, protocol;
        std::uint32_t index = 0;
        words >> address >> references >> type >> protocol >> index;
        if (index == ifIndex) found += line + "\n";
    }
    return found;
}

std::string WhyNotSource(const std::string& source)
{
    if (source == "packet-socket") {
        const int socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        if (socket < 0) return std::string("no packet sockets here: ") + std::strerror(errno);
        ::close(socket);
        return "";
    }
    const int program = LoadProgram();
    if (program < 0) return std::string("no eBPF programs here: ") + std::strerror(errno);
    ::close(program);
    return source == "ebpf-tcx" && ProgramsAtTcx(::if_nametoindex("lo")) < 0 ? "the kernel has no tcx" : "";
}

}  // namespace support
