// SPDX-License-Identifier: Apache-2.0
#include "shapes/message.h"

#include <array>
#include <stdexcept>
#include <string_view>

namespace shapes {

namespace {

constexpr char kBase[] = "urn:ietf:params:xml:ns:netconf:base:1.0";

Element Leaf(const std::string& name, const std::string& text) { return {.name = name, .text = text}; }

Element Collector(unsigned number)
{
    return {.name = "collector",
            .children = {Leaf("name", "c" + std::to_string(number)),
                         Leaf("ip", "198.51.100." + std::to_string(number % 250 + 1))}};
}

Element Interface(unsigned number)
{
    return {.name = "interface",
            .children = {Leaf("name", "eth" + std::to_string(number)),
                         Leaf("sampling-rate", "512"),
                         {.name = "flow-sampling-collector", .children = {Leaf("name", "c0")}}}};
}

Element Data(std::vector<Element> entries)
{
    Element sflow{.name = "sflow", .attributes = {{"xmlns:nc", kBase}}, .children = std::move(entries)};
    Element oam{.name = "oam",
                .attributes = {{"xmlns", "urn:switch:yang:switch-oam-sflow"}},
                .children = {std::move(sflow)}};
    return {.name = "config",
            .attributes = {{"xmlns", "urn:switch:yang:switch-config"}},
            .children = {std::move(oam)}};
}

Element Datastore(const std::string& role, const std::string& name)
{
    return {.name = role, .children = {{.name = name}}};
}

Element Rpc(Element operation)
{
    return {.name = "rpc",
            .attributes = {{"xmlns", kBase}, {"message-id", "1"}},
            .children = {std::move(operation)}};
}

Element Edit(Element data)
{
    Element config{.name = "config", .children = {std::move(data)}};
    return Rpc({.name = "edit-config", .children = {Datastore("target", "candidate"), std::move(config)}});
}

Element Filtered(const std::string& operation, Element data)
{
    Element filter{.name = "filter", .attributes = {{"type", "subtree"}}, .children = {std::move(data)}};
    Element read{.name = operation};
    if (operation == "get-config") read.children.push_back(Datastore("source", "running"));
    read.children.push_back(std::move(filter));
    return Rpc(std::move(read));
}

Element* ChildNamed(Element& element, std::string_view name)
{
    for (auto& child : element.children)
        if (child.name == name) return &child;
    return nullptr;
}

std::vector<Found> All(Element& rpc)
{
    std::vector<Found> all;
    std::vector<Element*> open{&rpc};
    while (!open.empty()) {
        Element& element = *open.back();
        open.pop_back();
        for (std::size_t i = 0; i < element.children.size(); ++i) {
            all.push_back({&element, i});
            open.push_back(&element.children[i]);
        }
    }
    return all;
}

}  // namespace

void AppendText(const Element& element, std::string& out)
{
    out.append("<").append(element.name);
    for (const auto& [name, value] : element.attributes)
        out.append(" ").append(name).append("=\"").append(value).append("\"");
    out.append(">").append(element.text);
    for (const auto& child : element.children) AppendText(child, out);
    out.append("</").append(element.name.substr(0, element.name.find(' '))).append(">");
}

std::string TextOf(const Element& element)
{
    std::string text;
    AppendText(element, text);
    return text;
}

Element EditMessage() { return Edit(Data({Collector(0), Collector(1), Interface(0)})); }

Element FilterMessage() { return Filtered("get-config", Data({Collector(0), Interface(0)})); }

Element StateFilterMessage()
{
    const Element collector{.name = "collector", .children = {Leaf("name", "c0")}};
    const Element interface {
        .name = "interface", .children = { Leaf("name", "eth0"), Leaf("sampling-rate", "512") }
    };
    Element state = Data({collector, interface});
    state.name = "state";
    state.attributes = {{"xmlns", "urn:switch:yang:switch-state"}};
    state.children.at(0).attributes.clear();
    return Filtered("get", std::move(state));
}

Element DrawMessage(Dice& dice)
{
    static constexpr std::array kPlain{"validate", "discard-changes", "commit", "close-session",
                                       "lock",     "unlock"};
    switch (dice.Draw(5)) {
    case 0: {
        std::vector<Element> entries{Collector(0)};
        for (unsigned i = dice.Draw(8); i > 0; --i)
            entries.push_back(dice.OneIn(2) ? Collector(i) : Interface(i));
        return Edit(Data(std::move(entries)));
    }
    case 1: {
        static constexpr std::array kOperations{"merge", "create", "replace", "delete", "remove"};
        auto entry = dice.OneIn(2) ? Collector(dice.Draw(3)) : Interface(dice.Draw(3));
        entry.attributes = {{"nc:operation", kOperations.at(dice.Draw(kOperations.size()))}};
        return Edit(Data({Collector(0), std::move(entry)}));
    }
    case 2:
        return Filtered(dice.OneIn(2) ? "get" : "get-config", Data({Collector(0), Interface(dice.Draw(3))}));
    case 3:
        return EditMessage();
    default: {
        Element operation{.name = kPlain.at(dice.Draw(kPlain.size()))};
        if (operation.name == "validate") operation.children = {Datastore("source", "candidate")};
        if (operation.name.ends_with("lock")) operation.children = {Datastore("target", "running")};
        return Rpc(std::move(operation));
    }
    }
}

Found Find(Element& rpc, Place place)
{
    if (place == Place::kRpc) return {};
    if (place == Place::kOperation) return {&rpc, 0};
    Element& operation = rpc.children.at(0);
    Element& wrapper = operation.children.back();  // <config> or <filter>
    if (place == Place::kData) return {&operation, operation.children.size() - 1};
    Element& oam = wrapper.children.at(0).children.at(0);
    if (place == Place::kContainer) return {&oam, 0};
    Element& sflow = oam.children.at(0);
    const std::size_t entry = sflow.children.size() - 1;
    if (place == Place::kEntry) return {&sflow, entry};
    Element& interface = sflow.children.at(entry);
    if (ChildNamed(interface, "name") == nullptr) throw std::logic_error("an entry without a key");
    return {&interface, place == Place::kKey ? 0U : 1U};
}

Found DrawElement(Element& rpc, Dice& dice)
{
    const auto all = All(rpc);
    if (all.empty()) return {};
    return all.at(dice.Draw(all.size()));
}

}  // namespace shapes
