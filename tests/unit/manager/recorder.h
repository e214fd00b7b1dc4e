// SPDX-License-Identifier: Apache-2.0
// What the manager's tests share: operations written short, what they touched and what is held as text.

#ifndef TESTS_UNIT_MANAGER_RECORDER_H
#define TESTS_UNIT_MANAGER_RECORDER_H

#include <arpa/inet.h>

#include <string>
#include <vector>

#include "manager/service/operation.h"
#include "manager/service/service_table.h"

namespace manager {

using Texts = std::vector<std::string>;

inline std::uint32_t Address(const std::string& text) { return ::inet_addr(text.c_str()); }

inline Operation Add(const std::string& name, const std::string& address = "192.0.2.1",
                     std::uint16_t port = 6343, std::uint16_t size = 1400)
{
    return AddCollector{name, {Address(address), port, size}};
}
inline Operation Delete(const std::string& name) { return DeleteCollector{name}; }
inline Operation Update(const std::string& interface, const std::string& flow = "",
                        const std::string& counter = "", std::uint32_t rate = 4096)
{
    return UpdateInterface{interface, flow, counter, {rate, Direction::kIngress, 128, 20}};
}
inline Operation AddFlow(const std::string& interface, const std::string& collector)
{
    return Attach{Kind::kFlow, interface, collector};
}
inline Operation AddCounter(const std::string& interface, const std::string& collector)
{
    return Attach{Kind::kCounter, interface, collector};
}
inline Operation RemoveFlow(const std::string& interface, const std::string& collector)
{
    return Detach{Kind::kFlow, interface, collector};
}
inline Operation RemoveCounter(const std::string& interface, const std::string& collector)
{
    return Detach{Kind::kCounter, interface, collector};
}
inline Operation Unset(const std::string& interface) { return UnsetInterface{interface}; }
inline Operation Agent(const std::string& address) { return SetAgentAddress{Address(address)}; }

inline std::string Text(const CollectorSettings& settings)
{
    return AddressText(settings.address) + " " + std::to_string(settings.port) + " " +
           std::to_string(settings.datagramSize);
}
inline std::string Text(const InterfaceSettings& settings)
{
    return std::to_string(settings.rate) + " " + std::to_string(static_cast<int>(settings.direction)) + " " +
           std::to_string(settings.maxHeaderSize) + " " + std::to_string(settings.interval);
}
inline std::string Text(Kind kind) { return kind == Kind::kFlow ? "flow" : "counter"; }

/// "interface eth1", "collector c1", "agent": in the order in which they are brought into effect.
inline Texts Text(const Touched& touched)
{
    Texts texts;
    for (const auto& name : touched.interfaces) texts.push_back("interface " + name);
    for (const auto& name : touched.collectors) texts.push_back("collector " + name);
    if (touched.agentAddress) texts.push_back("agent");
    return texts;
}
inline Texts Text(const ServiceTable::Applied& applied)
{
    return applied ? Text(*applied) : Texts{"refused: " + applied.error()};
}
/// Why it was refused; empty if it was not.
inline std::string ReasonOf(const ServiceTable::Applied& applied) { return applied ? "" : applied.error(); }

/// One line a thing held: "agent 192.0.2.9", "c1 192.0.2.1 6343 1400", "eth1 4096 2 128 20 flow c1 counter
/// c2".
inline Texts Held(const ServiceTable& table)
{
    Texts lines;
    if (table.AgentAddress()) lines.push_back("agent " + AddressText(*table.AgentAddress()));
    for (const auto& [name, collector] : table.AllCollectors())
        lines.push_back(name + " " + Text(collector.settings));
    for (const auto& [name, interface] : table.AllInterfaces()) {
        std::string line = name + " " + Text(interface.settings);
        for (const Kind kind : {Kind::kFlow, Kind::kCounter})
            for (const auto& [collector, mark] : interface.Of(kind))
                line += " " + Text(kind) + " " + collector;
        lines.push_back(line);
    }
    return lines;
}

}  // namespace manager

#endif
