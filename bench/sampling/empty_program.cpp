// SPDX-License-Identifier: Apache-2.0
#include "sampling/empty_program.h"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <system_error>

#include <bpf/bpf.h>
#include <linux/bpf.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace sampling {
namespace {

constexpr std::uint32_t kTcxIngress = 46;  // BPF_TCX_INGRESS, which older headers do not have

base::UniqueFd Checked(long file, const char* what)
{
    if (file < 0) throw std::system_error(errno, std::generic_category(), what);
    return base::UniqueFd(static_cast<int>(file));
}

base::UniqueFd Load()
{
    // return TCX_NEXT
    const bpf_insn code[] = {
        {.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = BPF_REG_0, .src_reg = 0, .off = 0, .imm = -1},
        {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0}};
    bpf_prog_load_opts options{};
    options.sz = sizeof options;
    options.expected_attach_type = static_cast<bpf_attach_type>(kTcxIngress);
    return Checked(
        bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "empty", "Apache-2.0", code, std::size(code), &options),
        "an empty program");
}

}  // namespace

EmptyProgram::EmptyProgram() : m_program(Load()) {}

void EmptyProgram::Attach(std::uint32_t ifIndex)
{
    bpf_attr attributes;
    std::memset(&attributes, 0, sizeof attributes);
    attributes.link_create.prog_fd = static_cast<std::uint32_t>(m_program.Get());
    attributes.link_create.target_ifindex = ifIndex;
    attributes.link_create.attach_type = kTcxIngress;
    m_link = Checked(::syscall(SYS_bpf, BPF_LINK_CREATE, &attributes, sizeof attributes),
                     "an empty program at an interface");
}

}  // namespace sampling
