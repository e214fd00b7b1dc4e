// SPDX-License-Identifier: Apache-2.0
// The state of a manager worked out twice, from its calls and from a configuration (see journal.h).

#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "support/journal.h"

namespace support {

namespace {

using nlohmann::json;

std::vector<std::string> Words(const std::string& call)
{
    std::istringstream in(call);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word == "-" ? "" : word);
    return words;
}

// One manager's life. `named` is what the session under way has sent.
class Player {
public:
    void Take(const std::string& call)
    {
        const auto words = Words(call);
        const auto operation = operations().find(words.at(0));
        if (operation == operations().end()) throw std::runtime_error("no such operation: " + call);
        operation->second(*this, words);
    }

    [[nodiscard]] const ManagerState& State() const { return m_state; }

private:
    using Operation = std::function<void(Player&, const std::vector<std::string>&)>;

    static const std::map<std::string, Operation>& operations()
    {
        static const std::map<std::string, Operation> table{
            {"SessionOpened", [](Player& p, auto&) { p.m_named = {}; }},
            {"SessionClosed", [](Player&, auto&) {}},
            {"SessionLoaded", [](Player& p, auto&) { p.Sweep(); }},
            {"SetAgentAddress", [](Player& p, auto& w) { p.m_state.agent = w.at(1); }},
            {"AddCollector",
             [](Player& p, auto& w) {
                 const auto values = w.at(2) + " " + w.at(3) + " " + w.at(4);
                 p.m_state.collectors[w.at(1)] = values;
                 p.m_named.collectors[w.at(1)] = values;
             }},
            {"DeleteCollector",
             [](Player& p, auto& w) {
                 p.m_state.collectors.erase(w.at(1));
                 p.m_named.collectors.erase(w.at(1));
             }},
            {"UpdateInterface",
             [](Player& p, auto& w) {
                 const auto numbers = w.at(4) + " " + w.at(5) + " " + w.at(6) + " " + w.at(7);
                 for (ManagerState* state : {&p.m_state, &p.m_named}) {
                     auto& interface = state->interfaces[w.at(1)];
                     interface.numbers = numbers;
                     if (!w.at(2).empty()) interface.sample.insert(w.at(2));
                     if (!w.at(3).empty()) interface.counter.insert(w.at(3));
                 }
             }},
            {"AddSampleCollector", [](Player& p, auto& w) { p.Attach(w, &ManagerState::Interface::sample); }},
            {"AddCounterCollector",
             [](Player& p, auto& w) { p.Attach(w, &ManagerState::Interface::counter); }},
            {"RemoveSampleCollector",
             [](Player& p, auto& w) { p.Detach(w, &ManagerState::Interface::sample); }},
            {"RemoveCounterCollector",
             [](Player& p, auto& w) { p.Detach(w, &ManagerState::Interface::counter); }},
            {"UnsetInterface",
             [](Player& p, auto& w) {
                 p.m_state.interfaces.erase(w.at(1));
                 p.m_named.interfaces.erase(w.at(1));
             }},
        };
        return table;
    }

    using Set = std::set<std::string> ManagerState::Interface::*;

    void Attach(const std::vector<std::string>& words, Set set)
    {
        for (ManagerState* state : {&m_state, &m_named})
            if (const auto found = state->interfaces.find(words.at(1)); found != state->interfaces.end())
                (found->second.*set).insert(words.at(2));
    }

    void Detach(const std::vector<std::string>& words, Set set)
    {
        for (ManagerState* state : {&m_state, &m_named})
            if (const auto found = state->interfaces.find(words.at(1)); found != state->interfaces.end())
                (found->second.*set).erase(words.at(2));
    }

    void Sweep()
    {
        m_named.agent = m_state.agent;
        m_state = m_named;
    }

    ManagerState m_state;
    ManagerState m_named;
};

// The member of that name, whatever module's name stands before it.
const json* Member(const json& object, const std::string& name)
{
    if (!object.is_object()) return nullptr;
    for (const auto& [key, value] : object.items())
        if (key == name || (key.size() > name.size() && key.ends_with(":" + name))) return &value;
    return nullptr;
}

const json* Descend(const json& root, const std::vector<std::string>& names)
{
    const json* at = &root;
    for (const auto& name : names)
        if (at != nullptr) at = Member(*at, name);
    return at;
}

std::string Text(const json& entry, const std::string& name, const std::string& standard)
{
    const json* value = Member(entry, name);
    if (value == nullptr) return standard;
    return value->is_string() ? value->get<std::string>() : value->dump();
}

// The entries of a list by their names.
std::map<std::string, json> Entries(const json* parent, const std::string& list)
{
    std::map<std::string, json> entries;
    const json* array = parent == nullptr ? nullptr : Member(*parent, list);
    if (array != nullptr)
        for (const auto& entry : *array) entries[Text(entry, "name", "")] = entry;
    return entries;
}

std::string AgentOf(const json& root, const json* sflow)
{
    if (sflow != nullptr)
        if (const json* agent = Descend(*sflow, {"agent", "ipv4"})) return agent->get<std::string>();
    const auto entries = Entries(Descend(root, {"config", "interface"}), "mgmt");
    if (entries.empty()) return "0.0.0.0";
    const json* address = Descend(entries.begin()->second, {"ipv4", "address", "ip"});
    if (address == nullptr) return "0.0.0.0";
    const auto text = address->get<std::string>();
    return text.substr(0, text.find('/'));
}

}  // namespace

ManagerState Play(const Calls& calls)
{
    Player player;
    for (const auto& call : calls) player.Take(call);
    return player.State();
}

ManagerState StateOf(const std::string& configuration)
{
    const json root = json::parse(configuration);
    const json* sflow = Descend(root, {"config", "oam", "sflow"});
    ManagerState state;
    state.agent = AgentOf(root, sflow);
    for (const auto& [name, entry] : Entries(sflow, "collector"))
        if (Text(entry, "enabled", "true") == "true")
            state.collectors[name] = Text(entry, "ip", "") + " " + Text(entry, "port", "6343") + " " +
                                     Text(entry, "datagram-size", "1400");
    for (const auto& [name, entry] : Entries(sflow, "interface")) {
        ManagerState::Interface interface;
        interface.numbers = Text(entry, "sampling-rate", Text(entry, "default-sampling-rate", "4096")) +
                            " 2 " + Text(entry, "max-header-size", "128") + " " +
                            Text(entry, "polling-interval", "20");
        for (const auto& [collector, ignored] : Entries(&entry, "flow-sampling-collector"))
            if (state.collectors.contains(collector)) interface.sample.insert(collector);
        for (const auto& [collector, ignored] : Entries(&entry, "counter-sampling-collector"))
            if (state.collectors.contains(collector)) interface.counter.insert(collector);
        // The daemon never names an interface without an enabled collector to the manager.
        if (!interface.sample.empty() || !interface.counter.empty()) state.interfaces[name] = interface;
    }
    return state;
}

ManagerState StateShown(const std::string& state)
{
    const json root = json::parse(state);
    const json* sflow = Descend(root, {"state", "oam", "sflow"});
    ManagerState shown;
    if (sflow == nullptr) return shown;
    shown.agent = Text(*sflow, "agent-address", "");
    for (const auto& [name, entry] : Entries(sflow, "collector"))
        shown.collectors[name] = Text(entry, "address", "") + " " + Text(entry, "port", "") + " " +
                                 Text(entry, "datagram-size", "");
    for (const auto& [name, entry] : Entries(sflow, "interface")) {
        auto& interface = shown.interfaces[name];
        const auto direction = Text(entry, "direction", "");
        interface.numbers = Text(entry, "sampling-rate", "") +
                            (direction == "ingress" ? " 2 " : " " + direction + " ") +
                            Text(entry, "max-header-size", "") + " " + Text(entry, "polling-interval", "");
        for (const auto& [list, set] :
             {std::pair{"flow-collector", &interface.sample}, {"counter-collector", &interface.counter}})
            if (const json* names = Member(entry, list))
                for (const auto& collector : *names) set->insert(collector.get<std::string>());
    }
    return shown;
}

}  // namespace support
