// SPDX-License-Identifier: Apache-2.0
#include "manager/status/problem.h"

#include <array>

#include <fmt/format.h>

namespace manager {

const char* Name(Reason reason)
{
    static constexpr std::array kNames = {"interface-missing",
                                          "interface-down",
                                          "no-traffic",
                                          "no-sample-yet",
                                          "buffer-full",
                                          "no-collector",
                                          "no-flow-collector",
                                          "collector-disabled",
                                          "collector-unknown",
                                          "no-permission",
                                          "no-kernel-support",
                                          "source-error",
                                          "sampling-off",
                                          "polling-off",
                                          "not-loaded",
                                          "no-route",
                                          "unreachable",
                                          "refused",
                                          "send-error",
                                          "nothing-sent",
                                          "no-interface",
                                          "no-agent-address",
                                          "source-address-missing",
                                          "device-missing",
                                          "no-session"};
    static_assert(kNames.size() == static_cast<std::size_t>(Reason::kNoSession) + 1);
    return kNames.at(static_cast<std::size_t>(reason));
}

const char* Name(Subject subject)
{
    static constexpr std::array kNames = {"agent", "collector", "interface"};
    return kNames.at(static_cast<std::size_t>(subject));
}

const char* Name(Severity severity)
{
    static constexpr std::array kNames = {"broken", "off", "idle"};
    return kNames.at(static_cast<std::size_t>(severity));
}

Severity SeverityOf(Reason reason)
{
    switch (reason) {
    case Reason::kNoCollector:
    case Reason::kNoFlowCollector:
    case Reason::kCollectorDisabled:
    case Reason::kSamplingOff:
    case Reason::kPollingOff:
    case Reason::kNoInterface:
        return Severity::kOff;
    case Reason::kInterfaceDown:
    case Reason::kNoTraffic:
    case Reason::kNoSampleYet:
    case Reason::kNothingSent:
        return Severity::kIdle;
    default:
        return Severity::kBroken;
    }
}

namespace text {
namespace {

/// "c1", "c1 and c2", "c1, c2, c3 and 2 more"
std::string Listed(const std::vector<std::string>& names)
{
    constexpr std::size_t kShown = 3;
    std::string text;
    for (std::size_t i = 0; i < names.size() && i < kShown; ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    if (names.size() > kShown) text += fmt::format(" and {} more", names.size() - kShown);
    return text;
}

/// ": REASON", or nothing.
std::string Because(const std::string& reason) { return reason.empty() ? "" : ": " + reason; }

std::string Where(const CollectorSettings& settings)
{
    return fmt::format("{}:{}", AddressText(settings.address), settings.port);
}

/// The command that shows the kernel's route to the collector: "ip route get 192.0.2.1 from 192.0.2.9".
std::string RouteCommand(const View::Collector& collector)
{
    const SendSettings& send = collector.own.send;
    std::string command = "ip route get " + AddressText(collector.settings.address);
    if (send.sourceAddress != 0) command += " from " + AddressText(send.sourceAddress);
    if (!send.device.empty()) command += " oif " + send.device;
    return command;
}

/// For these errors `ip route get` would only repeat what is known: the text names the list of routes.
std::string NoRoute(const std::string& where, const View::Collector& collector)
{
    const std::string address = AddressText(collector.settings.address);
    const std::error_code& error = collector.stream.lastError;
    if (error == std::errc::permission_denied)
        return fmt::format(
            "the kernel's route to {} is one of type prohibit, or that of a broadcast address; look at: "
            "ip route show table all match {}",
            where, address);
    if (error == std::errc::invalid_argument)
        return fmt::format(
            "the kernel's route to {} is one of type blackhole, or the address to send from is gone; "
            "look at: ip route show table all match {}",
            where, address);
    return fmt::format("the kernel has no route to {}; look at: {}", where, RouteCommand(collector));
}

std::string NoDevice(const View::Collector& collector)
{
    return fmt::format(
        "there is no device {1} by which datagrams to it could leave; make it, or: delete oam sflow-manager "
        "collector {0} device",
        collector.name, collector.own.send.device);
}

std::string NoSourceAddress(const View::Collector& collector)
{
    const SendSettings& send = collector.own.send;
    return fmt::format(
        "this machine does not have the address {1} that datagrams to it are to come from{2}; ip address add "
        "{1}/32 dev DEVICE, or set oam sflow-manager collector {0} source-address ADDRESS",
        collector.name, AddressText(send.sourceAddress),
        send.device.empty() ? "" : ", or not where " + send.device + " routes");
}

std::string MayNotSend(const std::string& where, const View::Collector& collector)
{
    if (collector.stream.lastTried != Tried::kDevice)
        return fmt::format("the kernel forbids datagrams to {}; look at the packet filter's output rules",
                           where);
    return fmt::format(
        "the manager may not bind a socket to the device {1}; start sflow-mgr as root, grant it CAP_NET_RAW, "
        "or: delete oam sflow-manager collector {0} device",
        collector.name, collector.own.send.device);
}

/// Of a socket that could not be bound or marked as the own settings want it.
Reason ReasonOfSettings(Tried tried, const std::error_code& error)
{
    if (tried == Tried::kDevice && error == std::errc::no_such_device) return Reason::kDeviceMissing;
    if (tried == Tried::kDevice && error == std::errc::operation_not_permitted) return Reason::kNoPermission;
    if (tried == Tried::kSource && error == std::errc::address_not_available)
        return Reason::kSourceAddressMissing;
    return Reason::kSendError;
}

}  // namespace

std::string NoSession()
{
    return "the configuration daemon is not connected: what is in effect stays as it is, and no commit "
           "reaches "
           "it; start sflow-app";
}

std::string NoAgentAddress()
{
    return "there is no agent address, so a collector can't tell whose datagrams these are; "
           "set oam sflow agent ipv4 ADDRESS, or give a management interface an address";
}

std::string Disabled(const std::vector<std::string>& collectors)
{
    return fmt::format("{} {} disabled; set oam sflow collector {} enabled true",
                       collectors.size() == 1 ? "the collector " + collectors.front()
                                              : "all its collectors (" + Listed(collectors) + ")",
                       collectors.size() == 1 ? "is" : "are", collectors.front());
}

std::string Unknown(const std::string& collector)
{
    return fmt::format(
        "the collector {0} is attached, but the manager knows no collector of that name; "
        "set oam sflow collector {0} ip ADDRESS, or request sflow resync",
        collector);
}

std::string OnlySettings(const std::string& collector)
{
    return fmt::format(
        "oam sflow-manager has settings for the collector {0}, but there is no collector of that name; "
        "set oam sflow collector {0} ip ADDRESS, or delete oam sflow-manager collector {0}",
        collector);
}

std::string NotLoaded(Service::Session session)
{
    switch (session) {
    case Service::Session::kNone:
        return "it is configured, but the manager has not been told of it: no configuration daemon is "
               "connected; start sflow-app";
    case Service::Session::kLoading:
        return "it is configured, but the manager has not been told of it yet: the configuration daemon is "
               "loading";
    case Service::Session::kLoaded:
        break;
    }
    return "it is configured, but the configuration daemon has not told the manager of it; "
           "request sflow resync";
}

std::string NotAttached(const std::vector<std::string>& collectors)
{
    return fmt::format(
        "it is configured to send to {}, but the configuration daemon has not told the manager of that; "
        "request sflow resync",
        Listed(collectors));
}

std::string NoInterface(const std::string& collector, bool mayBeLost)
{
    if (mayBeLost)
        return fmt::format(
            "no interface sends to it; where one is configured to: request sflow resync; "
            "else: set oam sflow interface INTERFACE flow-sampling-collector {}",
            collector);
    return fmt::format(
        "no interface sends to it; set oam sflow interface INTERFACE flow-sampling-collector {}", collector);
}

std::string NothingSent()
{
    return "nothing has been sent to it yet: its interfaces have had nothing to send";
}

Reason ReasonOf(const StreamStatus& stream)
{
    const std::error_code& error = stream.lastError;
    if (stream.lastTried != Tried::kSend && stream.lastTried != Tried::kConnect)
        return ReasonOfSettings(stream.lastTried, error);
    // The last two: routes of type prohibit and blackhole. A packet filter's refusal is EPERM.
    if (error == std::errc::network_unreachable || error == std::errc::address_not_available ||
        error == std::errc::permission_denied || error == std::errc::invalid_argument)
        return Reason::kNoRoute;
    if (error == std::errc::host_unreachable) return Reason::kUnreachable;
    if (error == std::errc::connection_refused) return Reason::kRefused;
    if (error == std::errc::operation_not_permitted) return Reason::kNoPermission;
    return Reason::kSendError;
}

std::string OfError(Reason reason, const View::Collector& collector)
{
    const std::string where = Where(collector.settings);
    if (collector.settings.port == 0)
        return fmt::format(
            "{} is no place to send to: there is no port 0; set oam sflow collector {} port 6343", where,
            collector.name);
    switch (reason) {
    case Reason::kNoRoute:
        return NoRoute(where, collector);
    case Reason::kUnreachable:
        return fmt::format("the host of {} does not answer, or a route or router can't reach it; is it up?",
                           where);
    case Reason::kRefused:
        return fmt::format("no program listens at {}; start the collector there, or correct its port", where);
    case Reason::kNoPermission:
        return MayNotSend(where, collector);
    case Reason::kSourceAddressMissing:
        return NoSourceAddress(collector);
    case Reason::kDeviceMissing:
        return NoDevice(collector);
    default:
        break;
    }
    if (collector.stream.lastError == std::errc::message_size)
        return fmt::format(
            "a datagram of {1} bytes is too large for the way to {0}; make them smaller: set oam sflow "
            "collector {2} datagram-size SIZE",
            where, collector.settings.datagramSize, collector.name);
    return fmt::format("datagrams to {} can't be sent{}", where, Because(collector.stream.lastErrorText));
}

std::string Missing(const std::string& interface)
{
    return fmt::format(
        "no kernel interface has that name, alternative name or alias; ip link set DEVICE alias {}",
        interface);
}

std::string Down(const InterfaceStatus& status)
{
    if (!status.adminUp)
        return fmt::format("the kernel interface {0} is set down; ip link set {0} up", status.kernelName);
    return fmt::format("the kernel interface {} has no link; look at the cable and the other end",
                       status.kernelName);
}

std::string NoCollector(const std::string& interface)
{
    return fmt::format("it has no collector; set oam sflow interface {} flow-sampling-collector COLLECTOR",
                       interface);
}

std::string NoFlowCollector(const std::string& interface)
{
    return fmt::format(
        "only its counters are sent; for packet samples: "
        "set oam sflow interface {} flow-sampling-collector COLLECTOR",
        interface);
}

std::string NoPermission(const std::string& reason)
{
    return fmt::format("the manager may not sample packets{}; start sflow-mgr with more privileges",
                       Because(reason));
}

std::string NoKernelSupport(const std::string& reason)
{
    return fmt::format("this kernel offers no way of sampling packets{}", Because(reason));
}

std::string SourceError(const InterfaceStatus& status)
{
    return fmt::format("packets can't be sampled at the kernel interface {}: {}", status.kernelName,
                       status.samplingError);
}

std::string NoTraffic(const View::Interface& interface, std::optional<Direction> added)
{
    const Direction own = interface.held.settings.direction;
    const bool both = own == Direction::kBoth || (added && *added != own);
    const char* what = both ? "has entered or left" : own == Direction::kIngress ? "has entered" : "has left";
    const InterfaceStatus& status = interface.status;
    if (status.packetsSeen == 0)
        return fmt::format("no packet {} the kernel interface {} since sampling began", what,
                           status.kernelName);
    return fmt::format("no packet {} the kernel interface {} for at least {} s", what, status.kernelName,
                       status.quiet.count());
}

std::string BufferFull(const InterfaceStatus& status)
{
    return fmt::format(
        "all {} packets sampled were lost for lack of room; raise the sampling rate's number, or start "
        "sflow-mgr with a larger --ring-size",
        status.dropsBuffer);
}

std::string Pending(const InterfaceStatus& status)
{
    return fmt::format(
        "sampling is about to begin at the kernel interface {}: the kernel makes interfaces ready one "
        "after the other; with many of them, sflow-mgr --expedite-rcu is quicker",
        status.kernelName);
}

std::string NoSampleYet(const View::Interface& interface)
{
    return fmt::format("{} packets seen, and at 1 in {} none of them has been sampled yet",
                       interface.status.packetsSeen, interface.held.settings.rate);
}

std::string SamplingOff(const std::string& interface)
{
    return fmt::format(
        "no packets are sampled: the sampling rate is 0; set oam sflow interface {} sampling-rate 4096",
        interface);
}

std::string PollingOff(const std::string& interface)
{
    return fmt::format(
        "its counters are not sent: the polling interval is 0; set oam sflow interface {} polling-interval "
        "20",
        interface);
}

}  // namespace text
}  // namespace manager
