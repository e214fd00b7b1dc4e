// SPDX-License-Identifier: Apache-2.0
#include "manager/process/privileges.h"

#include <cap-ng.h>
#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace manager {
namespace {

struct Capability {
    unsigned number;
    const char* name;
};

std::vector<Capability> Needed(const LaterNeeds& needs)
{
    std::vector<Capability> needed{{CAP_NET_ADMIN, "CAP_NET_ADMIN"}};
    if (needs.packetSockets) needed.push_back({CAP_NET_RAW, "CAP_NET_RAW"});
    if (needs.programs) needed.push_back({CAP_BPF, "CAP_BPF"});
    return needed;
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

/// What is impaired if the source could be made without the capability, or there is no source.
std::string Impaired(const std::string& capability, const std::string& source)
{
    if (capability == "CAP_BPF")
        return "kernels before Linux 5.19 take no sampling program at an interface, so no packets are "
               "sampled there";
    if (capability == "CAP_NET_RAW") return "packet sockets can't be opened, so no packets are sampled";
    if (source == "ebpf-clsact")
        return "no sampling program can be put at an interface, so no packets are sampled";
    return "the buffers for datagrams and for news of the kernel's tables are no larger than "
           "net.core.wmem_max and rmem_max, so datagrams are lost earlier in a burst, and tables are read "
           "anew more often";
}

}  // namespace

std::string WithoutCapability(const std::string& capability, const std::string& source)
{
    return "without " + capability + " " + Impaired(capability, source) +
           "; start sflow-mgr as root, or grant it " + capability;
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
    for (const Capability& capability : Needed(needs)) {
        if (capng_have_capability(CAPNG_PERMITTED, capability.number) == 1)
            kept.push_back(capability);
        else
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

}  // namespace manager
