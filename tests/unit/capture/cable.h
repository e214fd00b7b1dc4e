// SPDX-License-Identifier: Apache-2.0
// The fixture of what is tried at one interface: "near", the end of a virtual cable in a network of the
// test's own; what is sent into "far" enters there.

#ifndef TESTS_UNIT_CAPTURE_CABLE_H
#define TESTS_UNIT_CAPTURE_CABLE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "support/network.h"

/// `Base`: testing::Test, or one with parameters. Who overrides SetUp calls this one first, and goes on
/// unless the test is skipped.
template <typename Base = testing::Test>
class OnCable : public Base {
protected:
    void SetUp() override
    {
        if (const std::string why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        support::Network::Veth("near", "far");
        m_near = support::Network::Index("near");
    }

    std::optional<support::Network> m_network;
    std::uint32_t m_near = 0;
};

#endif
