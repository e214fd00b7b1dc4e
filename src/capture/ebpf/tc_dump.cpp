// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/tc_dump.h"

#include <cerrno>
#include <functional>
#include <system_error>

#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

#include "netlink/netlink.h"

namespace capture {
namespace {

constexpr std::uint16_t kDumpAll = NLM_F_DUMP;
constexpr std::uint16_t kTellOne = NLM_F_ECHO;  // the kernel answers for one qdisc by an echo

using TakeAnswer = std::function<void(const nlmsghdr&, const tcmsg&)>;

// `scope`: kDumpAll or kTellOne. Calls `take` for each answer, and `restart` before the kernel gives all of
// them anew because they changed meanwhile. Returns 0 if all were taken, else a negative errno.
int Ask(std::uint16_t type, std::uint16_t scope, const tcmsg& what, const TakeAnswer& take,
        const std::function<void()>& restart = nullptr)
{
    try {
        net::NetlinkSocket socket(NETLINK_ROUTE);
        net::NetlinkRequest request(type, scope);
        request.AddHeader(what);
        const auto answer = [&](const nlmsghdr& message) {
            if (const auto* body = net::HeaderOf<tcmsg>(message)) take(message, *body);
        };
        return socket.Request(request, answer, restart) ? 0 : -EAGAIN;
    } catch (const std::system_error& error) {
        return -error.code().value();
    }
}

std::string KindOf(const nlmsghdr& message)
{
    return std::string(
        net::ReadAttributes<TCA_KIND + 1>(net::Payload(message, sizeof(tcmsg)))[TCA_KIND].Text());
}

bool HasFilters(std::string_view kind) { return kind == "clsact" || kind == "ingress"; }

TcFilter FilterOf(const nlmsghdr& message, const tcmsg& body)
{
    const auto outer = net::ReadAttributes<TCA_OPTIONS + 1>(net::Payload(message, sizeof(tcmsg)));
    const auto options = net::ReadAttributes<TCA_BPF_ID + 1>(outer[TCA_OPTIONS].Bytes());
    TcFilter filter;
    filter.handle = body.tcm_handle;
    filter.name = options[TCA_BPF_NAME].Text();
    filter.program = options[TCA_BPF_ID].U32();
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
    const int error = Ask(
        RTM_GETQDISC, kDumpAll, {},
        [&](const nlmsghdr& message, const tcmsg& body) {
            if (message.nlmsg_type == RTM_NEWQDISC && HasFilters(KindOf(message)))
                found.push_back(body.tcm_ifindex);
        },
        [&] { found.clear(); });
    return error == 0 ? found : std::vector<int>{};
}

std::string FilterQdisc(int ifIndex)
{
    tcmsg qdisc{};
    qdisc.tcm_ifindex = ifIndex;
    qdisc.tcm_parent = TC_H_CLSACT;
    std::string kind;
    (void)Ask(RTM_GETQDISC, kTellOne, qdisc, [&](const nlmsghdr& message, const tcmsg&) {
        if (message.nlmsg_type == RTM_NEWQDISC) kind = KindOf(message);
    });
    return HasFilters(kind) ? kind : "";
}

int ListFilters(int ifIndex, bool egress, std::uint32_t priority, std::vector<TcFilter>& found)
{
    const std::size_t before = found.size();
    const auto take = [&](const nlmsghdr& message, const tcmsg& body) {
        if (message.nlmsg_type != RTM_NEWTFILTER || KindOf(message) != "bpf") return;
        // What has no handle stands for all filters of the priority.
        if (const TcFilter filter = FilterOf(message, body); filter.handle != 0) found.push_back(filter);
    };
    return Ask(RTM_GETTFILTER, kDumpAll, HookMessage(ifIndex, egress, priority), take,
               [&] { found.resize(before); });
}

bool ClsactIsEmpty(int ifIndex)
{
    for (const bool egress : {false, true}) {
        bool empty = true;
        const int error = Ask(RTM_GETTFILTER, kDumpAll, HookMessage(ifIndex, egress, 0),
                              [&](const nlmsghdr&, const tcmsg&) { empty = false; });
        if (error != 0 || !empty) return false;
    }
    return true;
}

}  // namespace capture
