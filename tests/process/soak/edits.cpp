// SPDX-License-Identifier: Apache-2.0
#include "soak/edits.h"

#include <array>
#include <functional>
#include <utility>

namespace soak {

namespace {

std::string Element(const std::string& name, const std::string& content, const std::string& operation = {})
{
    return "<" + name + (operation.empty() ? "" : " nc:operation=\"" + operation + "\"") + ">" + content +
           "</" + name + ">";
}

std::string Entry(const std::string& list, const std::string& name, const std::string& content,
                  const std::string& operation = {})
{
    return Element(list, Element("name", name) + content, operation);
}

std::string Sflow(const std::string& content)
{
    return R"(<config xmlns="urn:switch:yang:switch-config"><oam xmlns="urn:switch:yang:switch-oam-sflow">)"
           R"(<sflow xmlns:nc="urn:ietf:params:xml:ns:netconf:base:1.0">)" +
           content + "</sflow></oam></config>";
}

// Makes one random edit: its name, its XML, and the candidate after it.
class Drawing {
public:
    Drawing(Dice& dice, const Configuration& candidate) : m_dice(dice), m_edit{{}, {}, candidate, false} {}

    Edit Draw()
    {
        static constexpr std::array<void (Drawing::*)(), 12> kKinds{
            &Drawing::SetCollector, &Drawing::SetCollector, &Drawing::DeleteCollector,  &Drawing::SetEnabled,
            &Drawing::SetInterface, &Drawing::SetInterface, &Drawing::DeleteInterface,  &Drawing::Attach,
            &Drawing::Attach,       &Drawing::Detach,       &Drawing::ReplaceInterface, &Drawing::SetAgent};
        (this->*kKinds.at(m_dice.Draw(kKinds.size())))();
        m_edit.config = Sflow(m_edit.config);
        return std::move(m_edit);
    }

    Edit Agent(const std::string& address)
    {
        Is("agent " + address, Element("agent", Element("ipv4", address)));
        m_edit.after->agent = address;
        m_edit.config = Sflow(m_edit.config);
        return std::move(m_edit);
    }

private:
    std::string CollectorName() { return "c" + std::to_string(m_dice.Draw(5)); }
    std::string InterfaceName()
    {
        static constexpr std::array kPrefixes{"eth", "gigabit-ethernet-1/", "ten-gigabit-ethernet-1/"};
        return kPrefixes.at(m_dice.Draw(kPrefixes.size())) + std::to_string(m_dice.Draw(4));
    }
    std::string Address() { return "198.51.100." + std::to_string(m_dice.Draw(200) + 1); }

    void Is(const std::string& what, const std::string& xml)
    {
        m_edit.what = what;
        m_edit.config = xml;
    }

    void Refused() { m_edit.after.reset(); }

    // The interface as the edit finds it: what is new has its class's rate.
    Interface& At(const std::string& name)
    {
        const auto [at, isNew] = m_edit.after->interfaces.try_emplace(name);
        if (isNew) at->second.leaves["default-sampling-rate"] = DefaultRate(name);
        return at->second;
    }

    std::pair<std::string, std::string> Number()
    {
        switch (m_dice.Draw(4)) {
        case 0:
            return {"sampling-rate", std::to_string(m_dice.Draw(1000) + 1)};
        case 1:
            return {"default-sampling-rate", std::to_string(m_dice.Draw(1000) + 5000)};
        case 2:
            return {"max-header-size", std::to_string(m_dice.Draw(100) + 16)};
        default:
            return {"polling-interval", std::to_string(m_dice.Draw(1000) + 30)};
        }
    }

    // With `create` it must not be there.
    void SetCollector()
    {
        const auto name = CollectorName();
        const auto ip = Address();
        const bool create = m_dice.OneIn(6);
        std::string content = Element("ip", ip);
        auto& collectors = m_edit.after->collectors;
        const bool there = collectors.contains(name);
        collectors[name].ip = ip;
        if (m_dice.OneIn(2)) {
            const bool port = m_dice.OneIn(2);
            const auto* const leaf = port ? "port" : "datagram-size";
            const auto value = std::to_string((port ? 7000 : 200) + m_dice.Draw(1000));
            content += Element(leaf, value);
            collectors[name].leaves[leaf] = value;
        }
        Is((create ? "create collector " : "collector ") + name,
           Entry("collector", name, content, create ? "create" : ""));
        if (create && there) Refused();
    }

    void DeleteCollector()
    {
        const auto name = CollectorName();
        const bool remove = m_dice.OneIn(3);
        Is((remove ? "remove collector " : "delete collector ") + name,
           Entry("collector", name, "", remove ? "remove" : "delete"));
        m_edit.changesEnabled = true;
        const bool there = m_edit.after->collectors.erase(name) == 1;
        if ((!there && !remove) || m_edit.after->Names(name)) Refused();
    }

    void SetEnabled()
    {
        const auto name = CollectorName();
        const std::string value = m_dice.OneIn(2) ? "true" : "false";
        Is("collector " + name + " enabled " + value, Entry("collector", name, Element("enabled", value)));
        m_edit.changesEnabled = true;
        const auto found = m_edit.after->collectors.find(name);
        if (found == m_edit.after->collectors.end()) return Refused();  // without an address
        found->second.leaves["enabled"] = value;
    }

    void SetInterface()
    {
        const auto name = InterfaceName();
        const auto [leaf, value] = Number();
        Is("interface " + name + " " + leaf + " " + value, Entry("interface", name, Element(leaf, value)));
        At(name).leaves[leaf] = value;
    }

    void DeleteInterface()
    {
        const auto name = InterfaceName();
        const bool remove = m_dice.OneIn(3);
        Is((remove ? "remove interface " : "delete interface ") + name,
           Entry("interface", name, "", remove ? "remove" : "delete"));
        if (m_edit.after->interfaces.erase(name) == 0 && !remove) Refused();
    }

    void Attach()
    {
        const auto interface = InterfaceName();
        const auto collector = CollectorName();
        const bool flow = m_dice.OneIn(2);
        const std::string list = flow ? "flow-sampling-collector" : "counter-sampling-collector";
        Is("interface " + interface + " " + list + " " + collector,
           Entry("interface", interface, Entry(list, collector, "")));
        if (!m_edit.after->collectors.contains(collector)) return Refused();
        (flow ? At(interface).flow : At(interface).counter).insert(collector);
    }

    void Detach()
    {
        const auto interface = InterfaceName();
        const auto collector = CollectorName();
        const bool flow = m_dice.OneIn(2);
        const std::string list = flow ? "flow-sampling-collector" : "counter-sampling-collector";
        Is("interface " + interface + " delete " + list + " " + collector,
           Entry("interface", interface, Entry(list, collector, "", "delete")));
        const auto found = m_edit.after->interfaces.find(interface);
        if (found == m_edit.after->interfaces.end() ||
            (flow ? found->second.flow : found->second.counter).erase(collector) == 0)
            Refused();
    }

    void ReplaceInterface()
    {
        const auto name = InterfaceName();
        const auto [leaf, value] = Number();
        Is("replace interface " + name + " by " + leaf + " " + value,
           Entry("interface", name, Element(leaf, value), "replace"));
        m_edit.after->interfaces.erase(name);
        At(name).leaves[leaf] = value;
    }

    void SetAgent()
    {
        if (!m_dice.OneIn(4)) {
            const auto address = Address();
            Is("agent " + address, Element("agent", Element("ipv4", address)));
            m_edit.after->agent = address;
            return;
        }
        Is("delete agent", Element("agent", "<ipv4 nc:operation=\"delete\"/>"));
        if (!m_edit.after->agent) return Refused();
        m_edit.after->agent.reset();
    }

    Dice& m_dice;
    Edit m_edit;
};

}  // namespace

Edit DrawEdit(Dice& dice, const Configuration& candidate) { return Drawing(dice, candidate).Draw(); }

Edit ChangeAgent(Dice& dice, const Configuration& candidate)
{
    std::string address;
    do address = "203.0.113." + std::to_string(dice.Draw(250) + 1);
    while (candidate.agent == address);
    return Drawing(dice, candidate).Agent(address);
}

Edit DrawNonsense(Dice& dice)
{
    static const std::array<std::string, 9> kinds{
        Sflow("<agent><ipv4>300.1.1.1</ipv4></agent>"),
        Sflow("<collector><name>new</name></collector>"),
        Sflow("<collector><ip>198.51.100.1</ip></collector>"),
        Sflow("<interface><name>eth0</name><sampling-rate>0</sampling-rate></interface>"),
        Sflow("<interface><name>no blanks</name></interface>"),
        Sflow("<interface><name>eth0</name><speed>5</speed></interface>"),
        Sflow(
            "<interface><name>eth0</name><flow-sampling-collector><name>none</name></flow-sampling-collector>"
            "</interface>"),
        Sflow("<interface nc:operation=\"destroy\"><name>eth0</name></interface>"),
        "<config xmlns=\"urn:example:nothing\"><oam/></config>"};
    const auto& config = kinds.at(dice.Draw(kinds.size()));
    return {"nonsense: " + config, config, std::nullopt, false};
}

}  // namespace soak
