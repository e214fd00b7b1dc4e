// SPDX-License-Identifier: Apache-2.0
// What the suites of this folder share: a World for each test, its logs shown where a test fails, and
// the few things that nearly every test does. Configurations are those of the scenarios.

#ifndef SYSTEM_SYSTEM_TEST_H
#define SYSTEM_SYSTEM_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "netconf/client.h"
#include "netconf/requests.h"
#include "scenario/scenario.h"
#include "support/world.h"

namespace system_tests {

using support::Accepts;
using support::Await;
using support::Becomes;
using support::Calls;
using support::ManagerState;
using support::Process;
using support::RunResult;
using support::World;
using support::WorldOptions;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;

class SystemTest : public testing::Test {
protected:
    explicit SystemTest(WorldOptions options = {}) : m_world(std::move(options)) {}
    ~SystemTest() override;

    World& TheWorld() { return m_world; }

    /// A NETCONF session.
    netconf::Client Connect() { return netconf::Client::Connect(m_world.NetconfSocket()); }

    /// Expects the answer to be ok without any error or warning.
    static void Do(netconf::Client& client, const std::string& operation);
    /// Expects one error of this tag; returns it.
    static netconf::RpcError Refused(netconf::Client& client, const std::string& operation,
                                     const std::string& tag);

    /// edit-config and commit in a session of its own.
    void Commit(const std::string& config);
    /// The leaf `sampling-rate` of an interface, as <config> content.
    static std::string Rate(const std::string& interface, unsigned rate);

    /// The running configuration as XML, as the database answers it.
    std::string Running();

    /// Waits until the manager has exactly what the running configuration says.
    void AwaitSettled();

private:
    World m_world;
};

}  // namespace system_tests

#endif
