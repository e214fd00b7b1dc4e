// SPDX-License-Identifier: Apache-2.0
// The soak's own idea of a configuration: what is in it, how the database answers it, and what the manager
// must have for it. Shares no code with the database.

#ifndef SOAK_CONFIGURATION_H
#define SOAK_CONFIGURATION_H

#include <map>
#include <optional>
#include <set>
#include <string>

#include "support/journal.h"

namespace soak {

/// A configuration as what it says, one text a leaf or entry: "interface[eth1]/sampling-rate=5",
/// "interface[eth1]/flow-sampling-collector[c1]". Leaves at their default are left out: whether they were
/// given does not matter here.
using Statements = std::set<std::string>;

struct Collector {
    std::string ip;
    std::map<std::string, std::string> leaves;  // enabled, datagram-size, port
    friend bool operator==(const Collector&, const Collector&) = default;
};

struct Interface {
    std::map<std::string, std::string> leaves;  // its numbers
    std::set<std::string> flow;
    std::set<std::string> counter;
    friend bool operator==(const Interface&, const Interface&) = default;
};

struct Configuration {
    std::optional<std::string> agent;
    std::map<std::string, Collector> collectors;
    std::map<std::string, Interface> interfaces;
    friend bool operator==(const Configuration&, const Configuration&) = default;

    /// Whether an interface names the collector.
    [[nodiscard]] bool Names(const std::string& collector) const;
};

Statements StatementsOf(const Configuration& configuration);

/// The same of what <data> has. Throws std::runtime_error for a text that is no XML.
Statements StatementsOf(const std::string& xml);

/// What one has and the other has not, for a message.
std::string Difference(const Statements& wanted, const Statements& found);

/// What a manager has when all of it has arrived.
support::ManagerState ManagerOf(const Configuration& configuration);

/// What the daemon gives a new interface of this name.
std::string DefaultRate(const std::string& interface);

}  // namespace soak

#endif
