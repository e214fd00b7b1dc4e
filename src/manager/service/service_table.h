// SPDX-License-Identifier: Apache-2.0
// What the manager was told: the agent address, collectors, interfaces and their attachments, as the sessions
// have set it. The one place where they stand; everything else reads them here. A value with mark and sweep:
// knows no socket, no file, no clock and nothing of what is in effect. The service applies operations to it,
// and the reconciler brings what they touched into effect.

#ifndef MANAGER_SERVICE_SERVICE_TABLE_H
#define MANAGER_SERVICE_SERVICE_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/expected.h"
#include "manager/service/operation.h"

namespace manager {

/// The names of what an operation or a sweep has changed, added or removed; each once, in ascending order.
struct Touched {
    std::vector<std::string> interfaces = {};  // their settings or attachments
    std::vector<std::string> collectors = {};
    bool agentAddress = false;
    [[nodiscard]] bool None() const { return interfaces.empty() && collectors.empty() && !agentAddress; }
};

class ServiceTable {
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

    using Collectors = std::map<std::string, Collector>;
    using Interfaces = std::map<std::string, Interface>;
    /// By collector name: the interfaces that it is attached to, for any kind, whether it exists or not.
    using Users = std::map<std::string, std::set<std::string_view>>;

    /// What an operation has touched, or why it is refused.
    using Applied = base::expected<Touched, std::string>;

    ServiceTable() = default;
    explicit ServiceTable(const Limits& limits) : m_limits(limits) {}
    ServiceTable(const ServiceTable&) = delete;
    ServiceTable& operator=(const ServiceTable&) = delete;

    /// Applies one operation. Returns what it touched, nothing if nothing had to change; the reason if
    /// it can't be applied, and then nothing has changed.
    Applied Apply(const Operation& operation);

    /// A new session begins: what is held now belongs to an earlier one until it is named again.
    void BeginSession() { ++m_session; }

    /// The session has named all that it wants: removes what it has not named.
    Touched Sweep();

    [[nodiscard]] std::optional<std::uint32_t> AgentAddress() const { return m_agentAddress; }
    [[nodiscard]] const Collectors& AllCollectors() const { return m_collectors; }
    [[nodiscard]] const Interfaces& AllInterfaces() const { return m_interfaces; }
    [[nodiscard]] const Users& AllUsers() const { return m_users; }
    /// Null if there is none of that name.
    [[nodiscard]] const Collector* FindCollector(const std::string& name) const;
    [[nodiscard]] const Interface* FindInterface(const std::string& name) const;
    /// The interfaces that the collector is attached to; the views stay good until the next operation.
    [[nodiscard]] const std::set<std::string_view>& UsersOf(const std::string& collector) const;

private:
    Applied On(const AddCollector& operation);
    Applied On(const DeleteCollector& operation);
    Applied On(const UpdateInterface& operation);
    Applied On(const Attach& operation);
    Applied On(const Detach& operation);
    Applied On(const UnsetInterface& operation);
    Applied On(const SetAgentAddress& operation);

    /// Return whether something has changed.
    bool AttachOne(Interfaces::value_type& interface, Kind kind, const std::string& collector);
    bool DetachOne(Interfaces::value_type& interface, Kind kind, const std::string& collector);
    bool SweepAttachments(Interfaces::value_type& interface);
    void Remove(Interfaces::iterator interface);
    void RemoveUser(const std::string& collector, const std::string& interface);

    const Limits m_limits{};
    Mark m_session = 0;
    std::optional<std::uint32_t> m_agentAddress;
    Mark m_agentMark = 0;
    Collectors m_collectors;
    Interfaces m_interfaces;
    std::size_t m_attachments = 0;
    Users m_users;  // views of the names in m_interfaces
};

}  // namespace manager

#endif
