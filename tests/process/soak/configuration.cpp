// SPDX-License-Identifier: Apache-2.0
#include "soak/configuration.h"

#include <array>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "netconf/xml.h"

namespace soak {

namespace {

const std::map<std::string, std::string>& Defaults()
{
    static const std::map<std::string, std::string> table{
        {"enabled", "true"},        {"datagram-size", "1400"},  {"port", "6343"},
        {"max-header-size", "128"}, {"polling-interval", "20"}, {"default-sampling-rate", "4096"}};
    return table;
}

bool IsDefault(const std::string& leaf, const std::string& value)
{
    const auto found = Defaults().find(leaf);
    return found != Defaults().end() && found->second == value;
}

std::string Value(const std::map<std::string, std::string>& leaves, const std::string& name)
{
    const auto found = leaves.find(name);
    return found != leaves.end() ? found->second : Defaults().at(name);
}

// Plain containers say nothing and are not in the path.
class Reader : public netconf::XmlVisitor {
public:
    bool OnStart(const netconf::XmlElement& element) override
    {
        if (!m_open.empty()) m_open.back().leaf = false;
        m_open.push_back({std::string(element.name), {}, {}, true});
        return true;
    }

    bool OnText(std::size_t, std::string_view text) override
    {
        m_open.back().text += text;
        return true;
    }

    bool OnEnd(std::size_t, std::size_t) override
    {
        const Element done = m_open.back();
        m_open.pop_back();
        if (!done.leaf || m_open.empty()) return true;
        Element& parent = m_open.back();
        if (done.name == "name") {
            parent.key = done.text;
            m_statements.insert(Path());
        } else if (!done.text.empty() && !IsDefault(done.name, done.text)) {
            const auto path = Path();
            m_statements.insert(path + (path.empty() ? "" : "/") + done.name + "=" + done.text);
        }
        return true;
    }

    [[nodiscard]] const Statements& Result() const { return m_statements; }

private:
    struct Element {
        std::string name;
        std::string text;
        std::string key;
        bool leaf;
    };

    [[nodiscard]] std::string Path() const
    {
        std::string path;
        for (const auto& element : m_open)
            if (!element.key.empty())
                path += (path.empty() ? "" : "/") + element.name + "[" + element.key + "]";
        return path;
    }

    std::vector<Element> m_open;
    Statements m_statements;
};

void Add(Statements& statements, const std::string& path, const std::map<std::string, std::string>& leaves)
{
    statements.insert(path);
    for (const auto& [name, value] : leaves)
        if (!IsDefault(name, value)) statements.insert(path + "/" + name + "=" + value);
}

}  // namespace

bool Configuration::Names(const std::string& collector) const
{
    for (const auto& [name, interface] : interfaces)
        if (interface.flow.contains(collector) || interface.counter.contains(collector)) return true;
    return false;
}

Statements StatementsOf(const Configuration& configuration)
{
    Statements statements;
    if (configuration.agent) statements.insert("ipv4=" + *configuration.agent);
    for (const auto& [name, collector] : configuration.collectors) {
        const auto path = "collector[" + name + "]";
        Add(statements, path, collector.leaves);
        statements.insert(path + "/ip=" + collector.ip);
    }
    for (const auto& [name, interface] : configuration.interfaces) {
        const auto path = "interface[" + name + "]";
        Add(statements, path, interface.leaves);
        for (const auto& one : interface.flow)
            statements.insert(path + "/flow-sampling-collector[" + one + "]");
        for (const auto& one : interface.counter)
            statements.insert(path + "/counter-sampling-collector[" + one + "]");
    }
    return statements;
}

Statements StatementsOf(const std::string& xml)
{
    Reader reader;
    if (xml.empty()) return {};
    if (const auto wrong = netconf::ReadXml(xml, reader))
        throw std::runtime_error("what was read is no XML: " + *wrong);
    return reader.Result();
}

std::string Difference(const Statements& wanted, const Statements& found)
{
    std::string text;
    for (const auto& one : wanted)
        if (!found.contains(one)) text += "\n  missing: " + one;
    for (const auto& one : found)
        if (!wanted.contains(one)) text += "\n  too much: " + one;
    return text;
}

support::ManagerState ManagerOf(const Configuration& configuration)
{
    support::ManagerState state;
    state.agent = configuration.agent.value_or("0.0.0.0");
    for (const auto& [name, collector] : configuration.collectors)
        if (Value(collector.leaves, "enabled") == "true")
            state.collectors[name] = collector.ip + " " + Value(collector.leaves, "port") + " " +
                                     Value(collector.leaves, "datagram-size");
    for (const auto& [name, interface] : configuration.interfaces) {
        support::ManagerState::Interface told;
        const auto rate = interface.leaves.find("sampling-rate");
        told.numbers = (rate != interface.leaves.end() ? rate->second
                                                       : Value(interface.leaves, "default-sampling-rate")) +
                       " 2 " + Value(interface.leaves, "max-header-size") + " " +
                       Value(interface.leaves, "polling-interval");
        for (const auto& one : interface.flow)
            if (state.collectors.contains(one)) told.sample.insert(one);
        for (const auto& one : interface.counter)
            if (state.collectors.contains(one)) told.counter.insert(one);
        if (!told.sample.empty() || !told.counter.empty()) state.interfaces[name] = told;
    }
    return state;
}

std::string DefaultRate(const std::string& interface)
{
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 2> kRates{
        {{"gigabit-ethernet", "8192"}, {"ten-gigabit-ethernet", "20480"}}};
    for (const auto& [prefix, rate] : kRates)
        if (interface.starts_with(prefix)) return std::string(rate);
    return "4096";
}

}  // namespace soak
