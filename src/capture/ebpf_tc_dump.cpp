// Two dumps of rtnetlink: all qdiscs, and the filters of one hook.

#include "capture/ebpf_tc_dump.h"

#include <array>
#include <cstring>
#include <functional>
#include <string_view>

#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace capture {
namespace {

constexpr std::size_t kBuffer = 32768;  // what the kernel fills at most

struct Request {
    nlmsghdr head;
    tcmsg body;
};

// Calls `take` for each answer; false where the dump did not come to its end.
bool Dump(std::uint16_t type, int ifIndex, std::uint32_t parent,
          const std::function<void(const nlmsghdr*)>& take)
{
    const int file = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (file < 0) return false;
    Request request{};
    request.head.nlmsg_len = sizeof(request);
    request.head.nlmsg_type = type;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.tcm_ifindex = ifIndex;
    request.body.tcm_parent = parent;
    bool complete = false;
    bool more = ::send(file, &request, sizeof(request), 0) == static_cast<ssize_t>(sizeof(request));
    std::vector<char> buffer(kBuffer);
    while (more) {
        const ssize_t got = ::recv(file, buffer.data(), buffer.size(), 0);
        if (got <= 0) break;
        auto left = static_cast<unsigned>(got);
        const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
        for (; more && NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
            complete = message->nlmsg_type == NLMSG_DONE;
            more = !complete && message->nlmsg_type != NLMSG_ERROR;
            if (more) take(message);
        }
    }
    ::close(file);
    return complete;
}

bool IsClsact(const nlmsghdr* message)
{
    const auto* body = static_cast<const tcmsg*>(NLMSG_DATA(message));
    const auto* attribute = reinterpret_cast<const rtattr*>(body + 1);
    auto left = static_cast<unsigned>(message->nlmsg_len - NLMSG_LENGTH(sizeof(tcmsg)));
    for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
        if (attribute->rta_type != TCA_KIND) continue;
        const auto* text = static_cast<const char*>(RTA_DATA(attribute));
        return std::string_view(text, ::strnlen(text, RTA_PAYLOAD(attribute))) == "clsact";
    }
    return false;
}

}  // namespace

std::vector<int> InterfacesWithClsact()
{
    std::vector<int> found;
    (void)Dump(RTM_GETQDISC, 0, 0, [&](const nlmsghdr* message) {
        if (message->nlmsg_type == RTM_NEWQDISC && IsClsact(message))
            found.push_back(static_cast<const tcmsg*>(NLMSG_DATA(message))->tcm_ifindex);
    });
    return found;
}

bool ClsactIsEmpty(int ifIndex)
{
    for (const std::uint32_t hook : {TC_H_MIN_INGRESS, TC_H_MIN_EGRESS}) {
        bool empty = true;
        const bool complete = Dump(RTM_GETTFILTER, ifIndex, TC_H_MAKE(TC_H_CLSACT, hook),
                                   [&](const nlmsghdr*) { empty = false; });
        if (!complete || !empty) return false;
    }
    return true;
}

}  // namespace capture
