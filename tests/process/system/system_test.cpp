// SPDX-License-Identifier: Apache-2.0
// What the suites of this folder share (see the header).

#include "system/system_test.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "netconf/xml.h"

namespace system_tests {

namespace {

using nlohmann::json;

// Builds the JSON object that the elements of a configuration stand for; all leaves are texts.
class JsonBuilder : public netconf::XmlVisitor {
public:
    bool OnStart(const netconf::XmlElement& element) override
    {
        m_open.push_back({std::string(element.name), json::object(), {}});
        return true;
    }

    bool OnEnd(std::size_t, std::size_t) override
    {
        auto done = std::move(m_open.back());
        m_open.pop_back();
        const bool leaf = done.children.empty() && !done.text.empty();
        const bool entry = done.children.contains("name");
        auto& target = m_open.empty() ? m_result[done.name] : m_open.back().children[done.name];
        if (leaf)
            target = done.text;
        else if (entry)
            target.push_back(done.children);
        else
            target = done.children;
        return true;
    }

    bool OnText(std::size_t, std::string_view text) override
    {
        m_open.back().text += text;
        return true;
    }

    [[nodiscard]] const json& Result() const { return m_result; }

private:
    struct Element {
        std::string name;
        json children;
        std::string text;
    };
    std::vector<Element> m_open;
    json m_result = json::object();
};

std::string JsonOf(const std::string& xml)
{
    JsonBuilder builder;
    if (xml.empty()) return "{}";
    if (const auto wrong = netconf::ReadXml(xml, builder))
        throw std::runtime_error("bad configuration: " + *wrong);
    return builder.Result().dump();
}

}  // namespace

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
    // Where a test has no daemon, the committer is told so.
    const bool isUnheard = reply.errors.size() == 1 && reply.errors[0].IsWarning() &&
                           reply.errors[0].message.find("stands, but no process") != std::string::npos;
    EXPECT_TRUE(reply.errors.empty() || isUnheard) << reply.xml;
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

std::string SystemTest::Running() { return Connect().Call(netconf::GetConfig("running")).data; }

void SystemTest::AwaitSettled()
{
    const auto wanted = support::StateOf(JsonOf(Running()));
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
        const auto result = m_world.Cli("show sflow | json");
        if (result.status != 0) return false;
        have = support::StateShown(result.output);
        return have == wanted;
    });
    if (!shown) {
        difference << "the manager shows:\n" << have;
        throw support::TimedOut(difference.str());
    }
}

}  // namespace system_tests
