// SPDX-License-Identifier: Apache-2.0
#include "manager/process/privileges.h"

#include <cap-ng.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <system_error>
#include <utility>

namespace manager {
namespace {

struct Capability {
    unsigned number;
    const char* name;
    bool needed = true;  // else it is kept where the process has it
};

std::vector<Capability> Kept(const LaterNeeds& needs)
{
    std::vector<Capability> capabilities{{CAP_NET_ADMIN, "CAP_NET_ADMIN"}};
    if (needs.packetSockets) capabilities.push_back({CAP_NET_RAW, "CAP_NET_RAW"});
    capabilities.push_back({CAP_BPF, "CAP_BPF", needs.programs});
    capabilities.push_back({CAP_PERFMON, "CAP_PERFMON", false});
    return capabilities;
}

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void Become(const base::User& user)
{
    if (::geteuid() == user.uid && ::getuid() == user.uid) return;
    // The change of the user would take the capabilities away.
    if (::prctl(PR_SET_KEEPCAPS, 1) != 0) Fail("--user: cannot keep capabilities");
    if (::initgroups(user.name.c_str(), user.gid) != 0 || ::setgid(user.gid) != 0 || ::setuid(user.uid) != 0)
        Fail("--user: cannot become " + user.name);
}

// The largest buffers that the manager asks for: of the kernel's news of links, and of a collector's
// datagrams.
constexpr std::uint64_t kReceiveBuffer = 2 * 1024 * 1024;
constexpr std::uint64_t kSendBuffer = 512 * 1024;

/// What is impaired if the source could be made without the capability, or there is no source; empty:
/// nothing.
std::string Impaired(const std::string& capability, const std::string& source, const Machine& machine)
{
    if (capability == "CAP_BPF") {
        // From 5.19 on the kernel asks for it only when a program is loaded, which is done by then.
        if (std::pair(machine.kernelMajor, machine.kernelMinor) >= std::pair(5, 19)) return "";
        return "kernels before Linux 5.19 take no sampling program at an interface, so no packets are "
               "sampled there";
    }
    if (capability == "CAP_NET_RAW") return "packet sockets can't be opened, so no packets are sampled";
    if (source == "ebpf-clsact")
        return "no sampling program can be put at an interface, so no packets are sampled";
    if (machine.receiveLimit >= kReceiveBuffer && machine.sendLimit >= kSendBuffer) return "";
    return "the buffers for datagrams and for news of the kernel's tables are no larger than "
           "net.core.wmem_max and rmem_max, so datagrams are lost earlier in a burst, and tables are read "
           "anew more often";
}

/// What the loop, the allocator, the logger and the libraries call once the process is set up. Threads can be
/// made, and copies of the process, which have the same filter; other programs can't be run.
constexpr int kAllowed[] = {
    // reading and writing
    SCMP_SYS(read),
    SCMP_SYS(write),
    SCMP_SYS(readv),
    SCMP_SYS(writev),
    SCMP_SYS(pread64),
    SCMP_SYS(pwrite64),
    SCMP_SYS(lseek),
    SCMP_SYS(close),
    SCMP_SYS(close_range),
    SCMP_SYS(fsync),
    SCMP_SYS(dup),
    SCMP_SYS(fcntl),
    SCMP_SYS(ioctl),
    // files: the log, the time zone, /proc and /sys; removing the socket's file at the end
    SCMP_SYS(open),
    SCMP_SYS(openat),
    SCMP_SYS(stat),
    SCMP_SYS(lstat),
    SCMP_SYS(fstat),
    SCMP_SYS(newfstatat),
    SCMP_SYS(statx),
    SCMP_SYS(access),
    SCMP_SYS(faccessat),
    SCMP_SYS(faccessat2),
    SCMP_SYS(readlink),
    SCMP_SYS(readlinkat),
    SCMP_SYS(getdents64),
    SCMP_SYS(getcwd),
    SCMP_SYS(unlink),
    SCMP_SYS(unlinkat),
    // sockets; which families can be made is below
    SCMP_SYS(bind),
    SCMP_SYS(connect),
    SCMP_SYS(listen),
    SCMP_SYS(accept),
    SCMP_SYS(accept4),
    SCMP_SYS(shutdown),
    SCMP_SYS(getsockname),
    SCMP_SYS(getpeername),
    SCMP_SYS(getsockopt),
    SCMP_SYS(setsockopt),
    SCMP_SYS(sendto),
    SCMP_SYS(recvfrom),
    SCMP_SYS(sendmsg),
    SCMP_SYS(recvmsg),
    SCMP_SYS(sendmmsg),
    SCMP_SYS(recvmmsg),
    // waiting and time
    SCMP_SYS(poll),
    SCMP_SYS(ppoll),
    SCMP_SYS(epoll_create1),
    SCMP_SYS(epoll_ctl),
    SCMP_SYS(epoll_wait),
    SCMP_SYS(epoll_pwait),
    SCMP_SYS(epoll_pwait2),
    SCMP_SYS(eventfd2),
    SCMP_SYS(timerfd_create),
    SCMP_SYS(timerfd_settime),
    SCMP_SYS(timerfd_gettime),
    SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_getres),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(nanosleep),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(time),
    SCMP_SYS(restart_syscall),
    SCMP_SYS(futex),
    SCMP_SYS(sched_yield),
    SCMP_SYS(getcpu),
    SCMP_SYS(sched_getaffinity),
    // memory
    SCMP_SYS(brk),
    SCMP_SYS(mmap),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
    SCMP_SYS(madvise),
    SCMP_SYS(mprotect),
    // the kernel's programs and their maps
    SCMP_SYS(bpf),
    // ids, random numbers, signals, the end
    SCMP_SYS(getpid),
    SCMP_SYS(gettid),
    SCMP_SYS(getppid),
    SCMP_SYS(getuid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getegid),
    SCMP_SYS(uname),
    SCMP_SYS(sysinfo),
    SCMP_SYS(getrandom),
    SCMP_SYS(getrusage),
    SCMP_SYS(prlimit64),
    SCMP_SYS(rseq),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(tgkill),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    SCMP_SYS(set_robust_list),  // by every thread, first of all
#ifdef __SANITIZE_ADDRESS__
    // the sanitizers' own: they probe memory with a pipe, and look for leaks from a traced thread
    SCMP_SYS(pipe),
    SCMP_SYS(getdents),
    SCMP_SYS(pipe2),
    SCMP_SYS(clone),
    SCMP_SYS(ptrace),
    SCMP_SYS(prctl),
    SCMP_SYS(wait4),
    SCMP_SYS(kill),
#endif
};

constexpr int kFamilies[] = {AF_UNIX, AF_INET, AF_INET6, AF_NETLINK, AF_PACKET};

// A thread beside the loop (base/worker.h) is made with clone. The C library tries clone3 first, whose flags
// a filter can't see, and takes clone if that fails with ENOSYS.
int AllowThreads(scmp_filter_ctx context)
{
    if (const int error = seccomp_rule_add(context, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0); error != 0)
        return error;
#ifdef __SANITIZE_ADDRESS__
    return 0;  // clone is allowed already, whatever its flags
#else
    constexpr scmp_datum_t kThread = CLONE_THREAD;
    if (const int error = seccomp_rule_add(context, SCMP_ACT_ALLOW, SCMP_SYS(clone), 1,
                                           scmp_arg_cmp{0, SCMP_CMP_MASKED_EQ, kThread, kThread});
        error != 0)
        return error;
    // fork: what the process leaves at interfaces is removed by a child (capture/ebpf/last_process.h).
    constexpr scmp_datum_t kFork = CLONE_CHILD_CLEARTID | CLONE_CHILD_SETTID | SIGCHLD;
    return seccomp_rule_add(context, SCMP_ACT_ALLOW, SCMP_SYS(clone), 1,
                            scmp_arg_cmp{0, SCMP_CMP_EQ, kFork, 0});
#endif
}

int AddRules(scmp_filter_ctx context)
{
    for (const int call : kAllowed) {
        // A negative number is a call that this machine does not have.
        if (call < 0) continue;
        if (const int error = seccomp_rule_add(context, SCMP_ACT_ALLOW, call, 0); error != 0) return error;
    }
    for (const int family : kFamilies) {
        const int error =
            seccomp_rule_add(context, SCMP_ACT_ALLOW, SCMP_SYS(socket), 1,
                             scmp_arg_cmp{0, SCMP_CMP_EQ, static_cast<scmp_datum_t>(family), 0});
        if (error != 0) return error;
    }
    return AllowThreads(context);
}

}  // namespace

Machine ThisMachine()
{
    Machine machine;
    utsname names{};
    if (::uname(&names) == 0)
        (void)std::sscanf(names.release, "%d.%d", &machine.kernelMajor, &machine.kernelMinor);
    std::ifstream("/proc/sys/net/core/rmem_max") >> machine.receiveLimit;
    std::ifstream("/proc/sys/net/core/wmem_max") >> machine.sendLimit;
    return machine;
}

std::string WithoutCapability(const std::string& capability, const std::string& source,
                              const Machine& machine)
{
    const std::string impaired = Impaired(capability, source, machine);
    if (impaired.empty()) return "";
    return "without " + capability + " " + impaired + "; start sflow-mgr as root, or grant it " + capability;
}

std::vector<std::string> ReducePrivileges(const std::optional<base::User>& user, const LaterNeeds& needs)
{
    // The bounding set first: emptying it takes a capability that is given up next.
    capng_get_caps_process();
    if (capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) == 1) {
        capng_clear(CAPNG_SELECT_BOUNDS);
        capng_apply(CAPNG_SELECT_BOUNDS);
    }
    if (user) Become(*user);

    capng_get_caps_process();
    std::vector<std::string> missing;
    std::vector<Capability> kept;
    for (const Capability& capability : Kept(needs)) {
        if (capng_have_capability(CAPNG_PERMITTED, capability.number) == 1)
            kept.push_back(capability);
        else if (capability.needed)
            missing.emplace_back(capability.name);
    }
    capng_clear(CAPNG_SELECT_CAPS);
    for (const Capability& capability : kept)
        capng_update(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED),
                     capability.number);
    if (capng_apply(CAPNG_SELECT_CAPS) != 0) Fail("cannot give up capabilities");
    ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) Fail("cannot forbid new privileges");
    return missing;
}

std::string RestrictSystemCalls()
{
    const std::unique_ptr<void, void (*)(void*)> context(seccomp_init(SCMP_ACT_ERRNO(EPERM)),
                                                         [](void* one) { seccomp_release(one); });
    if (context == nullptr) return "the kernel does not filter system calls";
    int error = AddRules(context.get());
    if (error == 0) error = seccomp_attr_set(context.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2);
    if (error == 0) error = seccomp_load(context.get());
    return error == 0 ? "" : std::string("system calls can't be filtered: ") + std::strerror(-error);
}

}  // namespace manager
