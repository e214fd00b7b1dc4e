// SPDX-License-Identifier: Apache-2.0
// What an observer of the state, as the sampling is one, is told: every change that took effect, in order,
// and nothing if an operation changed nothing.

#ifndef MANAGER_SERVICE_OBSERVER_H
#define MANAGER_SERVICE_OBSERVER_H

#include <cstdint>
#include <optional>
#include <string>

#include "manager/service/operation.h"

namespace manager {

/// Called after the state has changed. An observer must not apply operations from within.
class Observer {
public:
    Observer() = default;
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
    virtual ~Observer() = default;

    /// The address in network byte order in memory; empty if a session was loaded without one.
    virtual void AgentAddressChanged(std::optional<std::uint32_t> address) = 0;

    /// A collector is new, or its settings are. Attachments by its name act from here on.
    virtual void CollectorChanged(const std::string& name, const CollectorSettings& settings) = 0;
    /// Attachments by its name stay and wait.
    virtual void CollectorRemoved(const std::string& name) = 0;

    /// An interface is new, or its settings are.
    virtual void InterfaceChanged(const std::string& name, const InterfaceSettings& settings) = 0;
    /// The interface is gone with all its attachments, which are not reported one by one.
    virtual void InterfaceRemoved(const std::string& name) = 0;

    virtual void Attached(const std::string& interface, Kind kind, const std::string& collector) = 0;
    virtual void Detached(const std::string& interface, Kind kind, const std::string& collector) = 0;
};

}  // namespace manager

#endif
