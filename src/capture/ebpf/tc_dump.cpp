// SPDX-License-Identifier: Apache-2.0
// Questions to rtnetlink: all qdiscs, that of one interface, and the filters of one hook.

#include "capture/ebpf/tc_dump.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string_view>

#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace capture {
namespace {

constexpr std::size_t kBuffer = 32768;  // what the kernel fills at most

struct TcRequest {
    nlmsghdr head;
    tcmsg body;
};

using TakeMessage = std::function<void(const nlmsghdr*)>;

// Returns 0 if the message ends the answer, 1 if more comes, else a negative errno.
int EndOf(const nlmsghdr* message)
{
    if (message->nlmsg_type == NLMSG_DONE) return 0;
    if (message->nlmsg_type != NLMSG_ERROR) return 1;
    return static_cast<const nlmsgerr*>(NLMSG_DATA(message))->error;  // 0 acknowledges
}

int Receive(int file, const TakeMessage& take)
{
    std::vector<char> buffer(kBuffer);
    while (true) {
        const ssize_t got = ::recv(file, buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got == 0 ? -EIO : -errno;
        auto left = static_cast<unsigned>(got);
        const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
        for (; NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
            if (const int end = EndOf(message); end <= 0) return end;
            take(message);
        }
    }
}

constexpr int kDumpAll = NLM_F_DUMP;
constexpr int kTellOne = NLM_F_ACK | NLM_F_ECHO;  // the kernel answers for one qdisc by an echo

// `scope`: kDumpAll or kTellOne. Calls `take` for each answer. Returns 0 if all were taken, else a negative
// errno.
int Ask(std::uint16_t type, int scope, const tcmsg& what, const TakeMessage& take)
{
    const int file = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (file < 0) return -errno;
    TcRequest request{};
    request.head.nlmsg_len = sizeof(request);
    request.head.nlmsg_type = type;
    request.head.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | scope);
    request.body = what;
    const ssize_t sent = ::send(file, &request, sizeof(request), 0);
    const int error = sent < 0 ? -errno : Receive(file, take);
    ::close(file);
    return error;
}

using TakeAttribute = std::function<void(std::uint16_t type, std::string_view value)>;

void EachAttribute(const void* first, std::size_t size, const TakeAttribute& take)
{
    const auto* attribute = static_cast<const rtattr*>(first);
    auto left = static_cast<unsigned>(size);
    for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left))
        take(attribute->rta_type & NLA_TYPE_MASK,
             {static_cast<const char*>(RTA_DATA(attribute)), RTA_PAYLOAD(attribute)});
}

void EachAttribute(const nlmsghdr* message, const TakeAttribute& take)
{
    if (message->nlmsg_len < NLMSG_LENGTH(sizeof(tcmsg))) return;
    EachAttribute(static_cast<const tcmsg*>(NLMSG_DATA(message)) + 1,
                  message->nlmsg_len - NLMSG_LENGTH(sizeof(tcmsg)), take);
}

std::string_view TextOf(std::string_view value) { return value.substr(0, value.find('\0')); }

std::string KindOf(const nlmsghdr* message)
{
    std::string kind;
    EachAttribute(message, [&](std::uint16_t type, std::string_view value) {
        if (type == TCA_KIND) kind = TextOf(value);
    });
    return kind;
}

bool HasFilters(std::string_view kind) { return kind == "clsact" || kind == "ingress"; }

TcFilter FilterOf(const nlmsghdr* message)
{
    const auto* body = static_cast<const tcmsg*>(NLMSG_DATA(message));
    TcFilter filter;
    filter.handle = body->tcm_handle;
    EachAttribute(message, [&](std::uint16_t outer, std::string_view options) {
        if (outer != TCA_OPTIONS) return;
        EachAttribute(options.data(), options.size(), [&](std::uint16_t type, std::string_view value) {
            if (type == TCA_BPF_NAME) filter.name = TextOf(value);
            if (type == TCA_BPF_ID && value.size() == sizeof(filter.program))
                std::memcpy(&filter.program, value.data(), value.size());
        });
    });
    return filter;
}

tcmsg HookMessage(int ifIndex, bool egress, std::uint32_t priority)
{
    tcmsg hook{};
    hook.tcm_ifindex = ifIndex;
    hook.tcm_parent = TC_H_MAKE(TC_H_CLSACT, egress ? TC_H_MIN_EGRESS : TC_H_MIN_INGRESS);
    hook.tcm_info = priority << 16;  // 0: all
    return hook;
}

}  // namespace

std::vector<int> InterfacesWithFilters()
{
    std::vector<int> found;
    const int error = Ask(RTM_GETQDISC, kDumpAll, {}, [&](const nlmsghdr* message) {
        if (message->nlmsg_type == RTM_NEWQDISC && HasFilters(KindOf(message)))
            found.push_back(static_cast<const tcmsg*>(NLMSG_DATA(message))->tcm_ifindex);
    });
    return error == 0 ? found : std::vector<int>{};
}

std::string FilterQdisc(int ifIndex)
{
    tcmsg qdisc{};
    qdisc.tcm_ifindex = ifIndex;
    qdisc.tcm_parent = TC_H_CLSACT;
    std::string kind;
    (void)Ask(RTM_GETQDISC, kTellOne, qdisc, [&](const nlmsghdr* message) {
        if (message->nlmsg_type == RTM_NEWQDISC) kind = KindOf(message);
    });
    return HasFilters(kind) ? kind : "";
}

int ListFilters(int ifIndex, bool egress, std::uint32_t priority, std::vector<TcFilter>& found)
{
    const auto take = [&](const nlmsghdr* message) {
        if (message->nlmsg_type != RTM_NEWTFILTER || KindOf(message) != "bpf") return;
        // What has no handle stands for all filters of the priority.
        if (const TcFilter filter = FilterOf(message); filter.handle != 0) found.push_back(filter);
    };
    return Ask(RTM_GETTFILTER, kDumpAll, HookMessage(ifIndex, egress, priority), take);
}

bool ClsactIsEmpty(int ifIndex)
{
    for (const bool egress : {false, true}) {
        bool empty = true;
        const int error = Ask(RTM_GETTFILTER, kDumpAll, HookMessage(ifIndex, egress, 0),
                              [&](const nlmsghdr*) { empty = false; });
        if (error != 0 || !empty) return false;
    }
    return true;
}

}  // namespace capture
