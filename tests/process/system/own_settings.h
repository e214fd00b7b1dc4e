// SPDX-License-Identifier: Apache-2.0
// What the suites about the manager's own settings share: the three processes in a network of the test's own
// with a cable from "far-end" to "busy", an interface that each packet is sampled at, and a collector that
// decodes what it gets.

#ifndef SYSTEM_OWN_SETTINGS_H
#define SYSTEM_OWN_SETTINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/decoding_collector.h"
#include "support/network.h"
#include "system/system_test.h"

namespace system_tests {

using support::Arrival;
using support::DecodedFlow;
using support::DecodingCollector;
using support::Injector;
using support::Network;

/// A flow sample with what its datagram says.
struct Sampled {
    std::string from;
    unsigned dscp = 0;
    std::uint32_t subAgent = 0, datagram = 0, sample = 0;  // the latter two are sequence numbers
    std::uint32_t output = 0;                              // interface
};

class OwnSettings : public testing::Test {
protected:
    void SetUp() override;
    ~OwnSettings() override;

    /// What the World is made with.
    [[nodiscard]] virtual WorldOptions Options() const { return {.logLevel = 11}; }

    /// Collector c1 gets each packet that enters by "busy". `more`: other collectors.
    void Start(const std::string& collector = "127.0.0.1", const std::string& more = "");
    /// Until each packet is sampled: what was sent before that is lost or not.
    void AwaitSampling();

    /// The commands and a commit, of which nobody has anything to say.
    void Commit(const std::string& commands);

    /// The manager's state, once it serves it.
    nlohmann::json Sflow();
    nlohmann::json CollectorShown(const std::string& name = "c1");
    /// "collector c1 source-address-missing: TEXT", one for each problem.
    std::vector<std::string> Problems();

    static std::vector<Sampled> SamplesIn(DecodingCollector& collector);
    /// What becomes of one packet that enters by "busy".
    Sampled Sample(const std::string& device = "far-end") { return Sample(*m_collector, device); }
    static Sampled Sample(DecodingCollector& collector, const std::string& device = "far-end");

    std::optional<Network> m_network;
    std::optional<DecodingCollector> m_collector;
    std::optional<World> m_world;
};

}  // namespace system_tests

#endif
