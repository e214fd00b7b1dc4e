#include "manager/state_json.h"

#include <chrono>

#include <fmt/chrono.h>
#include <nlohmann/json.hpp>

#include "manager/journal.h"
#include "manager/service.h"
#include "manager/state.h"

namespace manager {
namespace {

using Json = nlohmann::ordered_json;

const char* Name(Service::Session session)
{
    switch (session) {
    case Service::Session::kLoading:
        return "loading";
    case Service::Session::kLoaded:
        return "loaded";
    case Service::Session::kNone:
        break;
    }
    return "none";
}

const char* Name(Direction direction)
{
    switch (direction) {
    case Direction::kEgress:
        return "egress";
    case Direction::kBoth:
        return "both";
    case Direction::kIngress:
        break;
    }
    return "ingress";
}

/// yang:date-and-time, in UTC, to the millisecond.
std::string DateAndTime(std::chrono::system_clock::time_point time)
{
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(seconds.count())),
                       (sinceEpoch - seconds).count());
}

/// 64-bit numbers are strings in this encoding.
Json Counter(std::uint64_t value) { return std::to_string(value); }

Json ManagerJson(const Service& service, std::int64_t pid)
{
    Json manager = Json::object();
    manager["connected"] = service.CurrentSession() != Service::Session::kNone;
    manager["pid"] = pid;
    manager["session"] = Name(service.CurrentSession());
    manager["since"] = DateAndTime(service.Since());
    if (const Journal* journal = service.CurrentJournal(); journal != nullptr) {
        manager["journal"] = journal->Path();
        manager["journal-errors"] = Counter(journal->Errors());
    }
    manager["operations"] = Counter(service.Operations());
    manager["operations-refused"] = Counter(service.Refused());
    return manager;
}

Json CollectorJson(const std::string& name, const CollectorSettings& settings)
{
    Json collector = Json::object();
    collector["name"] = name;
    collector["address"] = AddressText(settings.address);
    collector["port"] = settings.port;
    collector["datagram-size"] = settings.datagramSize;
    return collector;
}

void PutNames(Json& into, const char* member, const State::Attachments& attachments)
{
    for (const auto& [name, mark] : attachments) into[member].push_back(name);
}

Json InterfaceJson(const std::string& name, const State::Interface& held)
{
    Json interface = Json::object();
    interface["name"] = name;
    interface["sampling-rate"] = held.settings.rate;
    interface["max-header-size"] = held.settings.maxHeaderSize;
    interface["polling-interval"] = held.settings.interval;
    interface["direction"] = Name(held.settings.direction);
    PutNames(interface, "flow-collector", held.Of(Kind::kFlow));
    PutNames(interface, "counter-collector", held.Of(Kind::kCounter));
    return interface;
}

}  // namespace

std::string StateJson(const Service& service, std::int64_t pid)
{
    const State& state = service.CurrentState();
    Json sflow = Json::object();
    sflow["manager"] = ManagerJson(service, pid);
    if (state.AgentAddress()) sflow["agent-address"] = AddressText(*state.AgentAddress());
    for (const auto& [name, collector] : state.Collectors())
        sflow["collector"].push_back(CollectorJson(name, collector.settings));
    for (const auto& [name, interface] : state.Interfaces())
        sflow["interface"].push_back(InterfaceJson(name, interface));
    Json root = Json::object();
    root["switch-state:state"]["oam"]["sflow"] = std::move(sflow);
    return root.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace manager
