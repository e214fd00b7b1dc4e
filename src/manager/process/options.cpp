// SPDX-License-Identifier: Apache-2.0
#include "manager/process/options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

#include "ipc/trust.h"

namespace manager {
namespace {

/// A whole number without sign, all of the text.
template <typename Number>
std::optional<Number> ToNumber(std::string_view text, int base = 10)
{
    Number number{};
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return std::nullopt;
    return number;
}

[[noreturn]] void Refuse(std::string_view option, std::string_view value, std::string_view remedy)
{
    throw UsageError("option --" + std::string(option) + ": \"" + std::string(value) + "\" " +
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
    const auto mark =
        hexadecimal ? ToNumber<std::uint32_t>(value.substr(2), 16) : ToNumber<std::uint32_t>(value);
    if (!mark) Refuse("mark", value, "is no mark; use a number up to 4294967295, 0x for hexadecimal");
    return *mark;
}

std::size_t ToRingSize(std::string_view value)
{
    constexpr std::size_t kMin = std::size_t{64} << 10, kMax = std::size_t{1} << 30;
    std::string_view digits = value;
    unsigned shift = 0;
    if (digits.ends_with('k')) shift = 10;
    if (digits.ends_with('M')) shift = 20;
    if (shift != 0) digits.remove_suffix(1);
    const auto number = ToNumber<std::size_t>(digits);
    if (!number || *number > (kMax >> shift) || (*number << shift) < kMin)
        Refuse("ring-size", value, "is no size; use bytes from 64k to 1024M, with k or M behind the number");
    return *number << shift;
}

/// 127.0.0.0/8 and ::1.
bool IsLoopback(const std::string& address, bool version6)
{
    in6_addr six{};
    if (version6) return ::inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
    in_addr four{};
    return ::inet_pton(AF_INET, address.c_str(), &four) == 1 && ::ntohl(four.s_addr) >> 24U == 127U;
}

bool IsAddress(const std::string& address, bool version6)
{
    in6_addr any{};
    return ::inet_pton(version6 ? AF_INET6 : AF_INET, address.c_str(), &any) == 1;
}

MetricsAddress ToMetricsAddress(std::string_view value)
{
    const std::size_t colon = value.rfind(':');
    std::string_view host = value.substr(0, std::min(colon, value.size()));
    const bool version6 = host.starts_with('[') && host.ends_with(']') && host.size() > 2;
    if (version6) host = host.substr(1, host.size() - 2);
    const std::string address(host);
    const auto port =
        colon == std::string_view::npos ? std::nullopt : ToNumber<std::uint16_t>(value.substr(colon + 1));
    if (!port || *port == 0 || !IsAddress(address, version6))
        Refuse("metrics", value, "is no address with a port; use 127.0.0.1:PORT or [::1]:PORT");
    if (!IsLoopback(address, version6))
        Refuse("metrics", value,
               "can be reached from elsewhere, and metrics have no access control; use 127.0.0.1:PORT or "
               "[::1]:PORT, and a proxy for others");
    return {address, *port};
}

std::string ToGroup(std::string_view value)
{
    if (ipc::FindGroup(std::string(value))) return std::string(value);
    Refuse("switch-group", value, "is no group of this machine; make it, or name another");
}

std::string ToAllowed(std::string_view value)
{
    if (const std::string problem = ipc::Trust("sflow-mgr").Allow(value); !problem.empty())
        throw UsageError("option --allow: " + problem);
    return std::string(value);
}

enum : int {
    kJournal = 1,
    kUser,
    kSwitchGroup,
    kAllow,
    kRequireSampling,
    kDirection,
    kSource,
    kMark,
    kRingSize,
    kExpediteRcu,
    kMetrics,
    kHelp,
    kVersion
};

constexpr option kOptions[] = {{"journal", required_argument, nullptr, kJournal},
                               {"user", required_argument, nullptr, kUser},
                               {"switch-group", required_argument, nullptr, kSwitchGroup},
                               {"allow", required_argument, nullptr, kAllow},
                               {"require-sampling", no_argument, nullptr, kRequireSampling},
                               {"direction", required_argument, nullptr, kDirection},
                               {"source", required_argument, nullptr, kSource},
                               {"mark", required_argument, nullptr, kMark},
                               {"ring-size", required_argument, nullptr, kRingSize},
                               {"expedite-rcu", no_argument, nullptr, kExpediteRcu},
                               {"metrics", required_argument, nullptr, kMetrics},
                               {"help", no_argument, nullptr, kHelp},
                               {"version", no_argument, nullptr, kVersion},
                               {nullptr, 0, nullptr, 0}};

/// False if there is no such option.
bool Take(int option, const char* value, Options& options)
{
    switch (option) {
    case kJournal:
        options.journal = value;
        return true;
    case kUser:
        options.user = value;
        return true;
    case kSwitchGroup:
        options.switchGroup = ToGroup(value);
        return true;
    case kAllow:
        options.allow.push_back(ToAllowed(value));
        return true;
    case kRequireSampling:
        options.requireSampling = true;
        return true;
    case kDirection:
        options.direction = ToDirection(value);
        return true;
    case kSource:
        options.source = ToSource(value);
        return true;
    case kMark:
        options.mark = ToMark(value);
        return true;
    case kRingSize:
        options.ringSize = ToRingSize(value);
        return true;
    case kExpediteRcu:
        options.expediteRcu = true;
        return true;
    case kMetrics:
        options.metrics = ToMetricsAddress(value);
        return true;
    case 'h':
    case kHelp:
        options.help = true;
        return true;
    case kVersion:
        options.version = true;
        return true;
    default:
        return false;
    }
}

}  // namespace

Options ParseOptions(int argc, char** argv)
{
    Options options;
    options.switchGroup = ipc::kSwitchGroup;
    ::optind = 0;  // begins anew, even if a command line has been parsed before
    ::opterr = 0;
    for (int found; (found = ::getopt_long(argc, argv, ":h", kOptions, nullptr)) != -1;) {
        if (found == ':') throw UsageError(std::string("option ") + argv[::optind - 1] + " needs a value");
        if (!Take(found, ::optarg, options))
            throw UsageError(std::string("no such option: ") + argv[::optind - 1]);
    }
    if (::optind < argc) throw UsageError(std::string("unexpected argument: ") + argv[::optind]);
    return options;
}

std::string VersionText() { return "sflow-mgr " SFLOW_VERSION "\n"; }

std::string UsageText()
{
    return "usage: sflow-mgr [OPTION...]\n"
           "\n"
           "The sFlow manager: samples packets, polls counters and sends both to collectors, as the\n"
           "configuration daemon tells it, and shows what it does in the switch's state.\n"
           "\n"
           "  --journal FILE       append each operation received to FILE, one JSON object a line\n"
           "  --user NAME          become this user once what needs more has been opened\n"
           "  --switch-group GROUP whom manager.sock is for (sflow-switch, where that is there)\n"
           "  --allow session=WHO,...\n"
           "                       who else than root and our own user may have the session: users\n"
           "                       and @groups (the switch group)\n"
           "  --require-sampling   refuse to start where packets can't be sampled\n"
           "  --source KIND        sample packets by auto, ebpf, ebpf-tcx, ebpf-clsact or\n"
           "                       packet-socket (auto: the best that can be had)\n"
           "  --direction WHICH    sample ingress, egress or both besides what interfaces ask for\n"
           "  --ring-size BYTES    size of the buffer for sampled packets, 64k to 1024M\n"
           "  --expedite-rcu       while many interfaces begin or end, make the whole kernel's waits\n"
           "                       short (/sys/kernel/rcu_expedited): real-time work may notice\n"
           "  --mark NUMBER        mark of the manager's own datagrams, which are never sampled\n"
           "                       (0x73464c77; 0: none)\n"
           "  --metrics ADDRESS:PORT\n"
           "                       serve metrics at this loopback address, such as 127.0.0.1:9100\n"
           "                       or [::1]:9100\n"
           "  --help, --version    say so, and end\n"
           "\n"
           "environment:\n"
           "  SFLOW_RUN_DIR        directory of manager.sock and cdb.sock (/run/sflow-switch)\n"
           "  SFLOW_LOG            log file, or - for standard error (-)\n"
           "  SFLOW_LOG_LEVEL      lowest level written: 10 debug, 11 info, 12 notice, 13 error (12)\n";
}

}  // namespace manager
