// SPDX-License-Identifier: Apache-2.0
#include "cli/data/edit_xml.h"

#include <libyang/libyang.h>

#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "netconf/xml.h"

namespace cli {

struct EditXml::Element {
    const lysc_node* schema = nullptr;  // null: what is around all
    std::vector<std::string> keys;
    std::string value;
    Operation operation = Operation::kMerge;
    std::vector<std::unique_ptr<Element>> children{};
    std::unordered_map<std::string, Element*> byName{};  // with keys, and the value of a leaf-list

    void Append(const lys_module* around, std::string& xml) const
    {
        const std::string_view name = schema->name;
        xml.append("<").append(name);
        if (schema->module != around) xml.append(" xmlns=\"").append(schema->module->ns).append("\"");
        AppendOperation(xml);
        xml += '>';
        const lysc_node* key = lysc_node_child(schema);
        for (const std::string& each : keys) {
            const std::string_view keyName = key->name;
            xml.append("<").append(keyName).append(">").append(netconf::Escaped(each));
            xml.append("</").append(keyName).append(">");
            key = key->next;
        }
        xml += netconf::Escaped(value);
        for (const auto& child : children) child->Append(schema->module, xml);
        xml.append("</").append(name).append(">");
    }

private:
    void AppendOperation(std::string& xml) const
    {
        static constexpr const char* kNames[] = {"", "replace", "delete", "remove"};
        if (operation == Operation::kMerge) return;
        xml.append(" xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"")
            .append(kNames[static_cast<std::size_t>(operation)])
            .append("\"");
    }
};

EditXml::EditXml() : m_top(std::make_unique<Element>()) {}
EditXml::~EditXml() = default;

EditXml::Element& EditXml::At(const Place& place)
{
    Element* at = m_top.get();
    for (const Step& step : place.steps) {
        std::string name = std::string(step.schema->module->name) + ':' + step.schema->name;
        for (const std::string& key : step.keys) name.append(1, '\0').append(key);
        if (step.schema->nodetype == LYS_LEAFLIST) name.append(1, '\0').append(place.value.value_or(""));
        Element*& child = at->byName[name];
        if (child == nullptr) {
            at->children.push_back(std::make_unique<Element>());
            child = at->children.back().get();
            child->schema = step.schema;
            child->keys = step.keys;
        }
        // What was deleted above comes again, with this alone.
        if (at->operation == Operation::kDelete || at->operation == Operation::kRemove)
            at->operation = Operation::kReplace;
        at = child;
    }
    return *at;
}

void EditXml::Set(const Place& place)
{
    Element& element = At(place);
    element.value = place.value.value_or("");
    if (element.operation != Operation::kMerge) element.operation = Operation::kReplace;
}

void EditXml::Delete(const Place& place)
{
    Element& element = At(place);
    const bool wasSet = !element.children.empty() || !element.value.empty();
    element.children.clear();
    element.byName.clear();
    // A leaf-list's value says which one it is.
    element.value = element.schema->nodetype == LYS_LEAFLIST ? place.value.value_or("") : "";
    // What was set here before may not be there.
    element.operation =
        wasSet || element.operation != Operation::kMerge ? Operation::kRemove : Operation::kDelete;
}

std::string EditXml::Text() const
{
    std::string xml;
    for (const auto& child : m_top->children) child->Append(nullptr, xml);
    return xml;
}

std::string OperationXml(const Place& place, Operation operation)
{
    EditXml edit;
    edit.At(place).operation = operation;
    return edit.Text();
}

std::string SetXml(std::span<const Place> places)
{
    EditXml edit;
    for (const Place& place : places) edit.Set(place);
    return edit.Text();
}

std::string DeleteXml(std::span<const Place> places)
{
    EditXml edit;
    for (const Place& place : places) edit.Delete(place);
    return edit.Text();
}

std::string FilterXml(std::span<const Place> places) { return SetXml(places); }

std::string KeysFilterXml(const Place& list)
{
    Place keys = list;
    keys.steps.push_back({lysc_node_child(list.steps.back().schema), {}});
    return SetXml(std::vector{keys});
}

}  // namespace cli
