// SPDX-License-Identifier: Apache-2.0
// What the manager holds: the agent address, collectors, interfaces and their attachments, as the sessions
// have set it. A pure value with mark and sweep: knows no socket, no file, no clock. The service applies
// operations to it, observers are told what changed, the state provider prints it.

#ifndef MANAGER_SERVICE_STATE_H
#define MANAGER_SERVICE_STATE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "manager/service/operation.h"

namespace manager {

class Observer;

class State {
public:
    /// Far beyond any switch; they bound what a faulty client can make grow.
    struct Limits {
        std::size_t collectors = 4096;
        std::size_t interfaces = 65536;
        std::size_t attachments = std::size_t{1} << 20;  // over all interfaces
    };

    /// Number of the session that last named a thing.
    using Mark = std::uint64_t;

    struct Collector {
        CollectorSettings settings;
        Mark mark = 0;
    };

    using Attachments = std::map<std::string, Mark>;  // by collector name

    struct Interface {
        InterfaceSettings settings;
        Mark mark = 0;
        std::array<Attachments, kKinds> attachments;
        [[nodiscard]] const Attachments& Of(Kind kind) const
        {
            return attachments[static_cast<std::size_t>(kind)];
        }
        [[nodiscard]] Attachments& Of(Kind kind) { return attachments[static_cast<std::size_t>(kind)]; }
    };

    State() = default;
    explicit State(const Limits& limits) : m_limits(limits) {}

    /// `observer` must outlive the state.
    void AddObserver(Observer& observer) { m_observers.push_back(&observer); }

    /// Applies one operation. Returns an empty text when done, also if nothing had to change; else why it was
    /// refused, and then nothing has changed.
    std::string Apply(const Operation& operation);

    /// A new session begins: what is held now belongs to an earlier one until it is named again.
    void BeginSession() { ++m_session; }

    /// The session has named all that it wants: removes what it has not named.
    void Sweep();

    [[nodiscard]] std::optional<std::uint32_t> AgentAddress() const { return m_agentAddress; }
    [[nodiscard]] const std::map<std::string, Collector>& Collectors() const { return m_collectors; }
    [[nodiscard]] const std::map<std::string, Interface>& Interfaces() const { return m_interfaces; }
    /// How many attachments each collector has, by its name, whether it exists or not.
    [[nodiscard]] const std::map<std::string, std::size_t>& AttachedCollectors() const { return m_attached; }

private:
    std::string On(const AddCollector& operation);
    std::string On(const DeleteCollector& operation);
    std::string On(const UpdateInterface& operation);
    std::string On(const Attach& operation);
    std::string On(const Detach& operation);
    std::string On(const UnsetInterface& operation);
    std::string On(const SetAgentAddress& operation);

    void AttachOne(Interface& interface, const Attach& attach);
    void Remove(std::map<std::string, Interface>::iterator interface);
    void DetachOne(const std::string& collector);
    void SweepAttachments(const std::string& name, Interface& interface);

    /// Calls one of the observers' functions on each.
    template <typename Function, typename... Arguments>
    void Tell(Function function, const Arguments&... arguments) const;

    const Limits m_limits{};
    Mark m_session = 0;
    std::optional<std::uint32_t> m_agentAddress;
    Mark m_agentMark = 0;
    std::map<std::string, Collector> m_collectors;
    std::map<std::string, Interface> m_interfaces;
    std::size_t m_attachments = 0;
    std::map<std::string, std::size_t> m_attached;  // of these, by collector
    std::vector<Observer*> m_observers;
};

}  // namespace manager

#endif
