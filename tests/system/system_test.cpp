// What the suites of this folder share (see the header).

#include "system/system_test.h"

#include <iostream>
#include <sstream>

namespace system_tests {

SystemTest::~SystemTest()
{
    if (!HasFailure()) return;
    for (const auto* process : {"cdbd", "sflow-mgr", "sflow-app"})
        std::cerr << "---- log of " << process << "\n" << m_world.Log(process);
}

void SystemTest::Do(netconf::Client& client, const std::string& operation)
{
    const auto reply = client.Call(operation);
    EXPECT_TRUE(reply.ok) << operation << "\n" << reply.xml;
    EXPECT_TRUE(reply.errors.empty()) << reply.xml;
}

netconf::RpcError SystemTest::Refused(netconf::Client& client, const std::string& operation,
                                      const std::string& tag)
{
    const auto reply = client.Call(operation);
    EXPECT_FALSE(reply.ok) << operation << "\n" << reply.xml;
    if (reply.errors.empty()) return {};
    EXPECT_EQ(tag, reply.errors.front().tag) << reply.xml;
    return reply.errors.front();
}

void SystemTest::Commit(const std::string& config)
{
    auto client = Connect();
    Do(client, netconf::EditConfig(config));
    Do(client, netconf::Commit());
}

std::string SystemTest::Rate(const std::string& interface, unsigned rate)
{
    return scenario::SflowXml("<interface><name>" + interface + "</name><sampling-rate>" +
                              std::to_string(rate) + "</sampling-rate></interface>");
}

std::string SystemTest::Running() { return m_world.CliDone("show configuration | display json"); }

void SystemTest::AwaitSettled()
{
    const auto wanted = support::StateOf(Running());
    ManagerState have;
    const bool settled = Becomes([&] {
        have = support::Play(m_world.ManagerJournal().All());
        return have == wanted;
    });
    std::ostringstream difference;
    difference << "the configuration says:\n" << wanted << "the manager has:\n" << have;
    if (!settled) throw support::TimedOut(difference.str());
    // The manager itself says the same; its connection to the database may be young.
    const bool shown = Becomes([&] {
        have = support::StateShown(m_world.CliDone("show sflow | json"));
        return have == wanted;
    });
    if (!shown) {
        difference << "the manager shows:\n" << have;
        throw support::TimedOut(difference.str());
    }
}

}  // namespace system_tests
