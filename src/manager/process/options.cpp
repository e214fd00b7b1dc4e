// SPDX-License-Identifier: Apache-2.0
#include "manager/process/options.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/number.h"
#include "base/options/options.h"
#include "base/user.h"
#include "ipc/trust.h"

namespace manager {
namespace {

[[noreturn]] void Refuse(std::string_view option, std::string_view value, std::string_view remedy)
{
    throw base::UsageError("option --" + std::string(option) + ": \"" + std::string(value) + "\" " +
                           std::string(remedy));
}

Direction ToDirection(std::string_view value)
{
    if (value == "ingress") return Direction::kIngress;
    if (value == "egress") return Direction::kEgress;
    if (value == "both") return Direction::kBoth;
    Refuse("direction", value, "is no direction; use ingress, egress or both");
}

std::string ToSource(std::string_view value)
{
    constexpr std::array<std::string_view, 5> kSources{"auto", "ebpf", "ebpf-tcx", "ebpf-clsact",
                                                       "packet-socket"};
    if (std::find(kSources.begin(), kSources.end(), value) != kSources.end()) return std::string(value);
    Refuse("source", value,
           "is no source of packets; use auto, ebpf, ebpf-tcx, ebpf-clsact or packet-socket");
}

std::uint32_t ToMark(std::string_view value)
{
    const bool hexadecimal = value.starts_with("0x");
    const auto mark = hexadecimal ? base::ToNumber<std::uint32_t>(value.substr(2), 16)
                                  : base::ToNumber<std::uint32_t>(value);
    if (!mark) Refuse("mark", value, "is no mark; use a number up to 4294967295, 0x for hexadecimal");
    return *mark;
}

std::size_t ToRingSize(const std::string& value)
{
    return base::ToSize(value, std::size_t{64} << 10, std::size_t{1} << 30,
                        "option --ring-size: \"" + value +
                            "\" is no size; use bytes from 64k to 1024M, with k or M behind the number");
}

metrics::Address ToMetricsAddress(std::string_view value)
{
    auto address = metrics::ToAddress(value);
    if (!address) Refuse("metrics", value, address.error());
    return *std::move(address);
}

std::chrono::seconds ToResyncAfter(std::string_view value)
{
    constexpr std::uint32_t kMost = 86'400;
    const auto seconds = base::ToNumber<std::uint32_t>(value);
    if (!seconds || *seconds > kMost)
        Refuse("resync-after", value, "is no number of seconds from 0 to 86400; 0 turns it off");
    return std::chrono::seconds(*seconds);
}

std::string ToGroup(std::string_view value)
{
    if (base::FindGroup(std::string(value))) return std::string(value);
    Refuse("switch-group", value, "is no group of this machine; make it, or name another");
}

std::string ToAllowed(std::string_view value)
{
    if (const std::string problem = ipc::Trust("sflow-mgr").Allow(value); !problem.empty())
        throw base::UsageError("option --allow: " + problem);
    return std::string(value);
}

base::Options OptionsFor(Options& to)
{
    base::Options described(to.help, to.version);
    const auto add = [&](const char* name, const char* value, auto& member, auto convert, const char* help) {
        described.Add(name, value, help,
                      [&member, convert](const std::string& text) { member = convert(text); });
    };
    const auto text = [](const std::string& value) { return value; };
    add("journal", "FILE", to.journal, text,
        "append each operation received to FILE, one JSON object a line");
    add("user", "NAME", to.user, text, "become this user once what needs more has been opened");
    add("switch-group", "GROUP", to.switchGroup, ToGroup,
        "whom manager.sock is for (sflow-switch, where that is there)");
    described.Add("allow", "session=WHO,...",
                  "who else than root and our own user may have the session: users and @groups (the switch "
                  "group)",
                  [&to](const std::string& value) { to.allow.push_back(ToAllowed(value)); });
    described.Add("require-sampling", "refuse to start where packets can't be sampled", to.requireSampling);
    add("source", "KIND", to.source, ToSource,
        "sample packets by auto, ebpf, ebpf-tcx, ebpf-clsact or packet-socket (auto: the best that can be "
        "had)");
    add("direction", "WHICH", to.direction, ToDirection,
        "sample ingress, egress or both besides what interfaces ask for");
    add("ring-size", "BYTES", to.ringSize, ToRingSize,
        "size of the buffer for sampled packets, 64k to 1024M");
    described.Add("expedite-rcu",
                  "while many interfaces begin or end, make the whole kernel's waits short "
                  "(/sys/kernel/rcu_expedited): real-time work may notice",
                  to.expediteRcu);
    add("mark", "NUMBER", to.mark, ToMark,
        "mark of the manager's own datagrams, which are never sampled (0x73464c77; 0: none)");
    add("resync-after", "SECONDS", to.resyncAfter, ToResyncAfter,
        "have everything sent again so long after the last change, so that what is in effect is what is "
        "configured (10; 0: never)");
    add("metrics", "ADDRESS:PORT", to.metrics, ToMetricsAddress,
        "serve metrics at this loopback address, such as 127.0.0.1:16343 or [::1]:16343");
    return described;
}

}  // namespace

Options ParseOptions(int argc, const char* const* argv)
{
    Options options;
    options.switchGroup = ipc::kSwitchGroup;
    OptionsFor(options).Read({argv + 1, argv + argc});
    return options;
}

std::string UsageText()
{
    Options unused;
    return "usage: sflow-mgr [OPTION...]\n"
           "\n"
           "The sFlow manager: samples packets, polls counters and sends both to collectors, as the\n"
           "configuration daemon tells it, and shows what it does in the switch's state.\n"
           "\n" +
           OptionsFor(unused).Text() + base::EnvironmentText();
}

}  // namespace manager
