// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_cdb.h"

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace fakes {

namespace {

using Json = nlohmann::ordered_json;
using Kind = SchemaNode::Kind;

std::string WithoutModule(const std::string& member)
{
    const auto colon = member.find(':');
    return colon == std::string::npos ? member : member.substr(colon + 1);
}

Value ValueOf(const SchemaNode& node, const Json& json)
{
    if (std::holds_alternative<bool>(node.type)) return json.get<bool>();
    if (std::holds_alternative<std::uint16_t>(node.type)) return json.get<std::uint16_t>();
    if (std::holds_alternative<std::uint32_t>(node.type)) return json.get<std::uint32_t>();
    if (std::holds_alternative<Ipv4>(node.type)) return Address(json.get<std::string>());
    if (std::holds_alternative<Ipv4Plen>(node.type)) return AddressAndLength(json.get<std::string>());
    return json.get<std::string>();
}

void LoadInto(Cdb& cdb, const std::string& schemaPath, const std::string& instance, const Json& object)
{
    for (const auto& [member, content] : object.items()) {
        const std::string name = WithoutModule(member);
        const SchemaNode* node = FindNode(schemaPath + "/" + name);
        if (node == nullptr) throw std::invalid_argument("no element " + name + " in " + instance);
        const std::string place = instance + "/" + name;
        if (node->kind == Kind::kLeaf) {
            if (name != "name") cdb.Set(place, ValueOf(*node, content));
        } else if (node->kind == Kind::kContainer) {
            LoadInto(cdb, node->path, place, content);
        } else {
            for (const Json& entry : content) {
                const std::string key = place + "{" + entry.at("name").get<std::string>() + "}";
                cdb.Create(key);
                LoadInto(cdb, node->path, key, entry);
            }
        }
    }
}

// One step of a path: a name with its key or index.
struct Step {
    std::string name;
    std::optional<std::string> key;
    std::optional<std::size_t> index;
};

std::optional<Step> TakeStep(const std::string& path, std::size_t& at)
{
    if (at >= path.size() || path[at] != '/') return std::nullopt;
    const auto end = path.find_first_of("/{[", ++at);
    Step step{path.substr(at, end - at), {}, {}};
    at = end == std::string::npos ? path.size() : end;
    if (step.name.empty()) return std::nullopt;
    if (at < path.size() && path[at] != '/') {
        const char closing = path[at] == '{' ? '}' : ']';
        const auto close = path.find(closing, at);
        if (close == std::string::npos) return std::nullopt;
        const std::string inside = path.substr(at + 1, close - at - 1);
        if (closing == '}') step.key = inside;
        if (closing == ']') {
            if (inside.empty() || inside.find_first_not_of("0123456789") != std::string::npos)
                return std::nullopt;
            step.index = std::strtoul(inside.c_str(), nullptr, 10);
        }
        at = close + 1;
    }
    return step;
}

bool StartsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

void Cdb::Load(const std::string& json)
{
    m_data = Data();
    const Json document = Json::parse(json);
    for (const auto& [member, content] : document.items()) {
        if (WithoutModule(member) != "config") throw std::invalid_argument("no container config");
        LoadInto(*this, "/config", "/config", content);
    }
}

void Cdb::Create(const std::string& entry)
{
    for (auto open = entry.find('{'); open != std::string::npos;) {
        const auto close = entry.find('}', open);
        m_data.lists[entry.substr(0, open)].insert(entry.substr(open + 1, close - open - 1));
        open = entry.find('{', close);
    }
}

void Cdb::Set(const std::string& leaf, Value value) { m_data.leaves[leaf] = std::move(value); }

void Cdb::Delete(const std::string& path)
{
    m_data.leaves.erase(path);
    if (path.empty() || path.back() != '}') return;
    const auto open = path.rfind('{');
    m_data.lists[path.substr(0, open)].erase(path.substr(open + 1, path.size() - open - 2));
    const auto below = [&](const auto& item) { return StartsWith(item.first, path + "/"); };
    std::erase_if(m_data.leaves, below);
    std::erase_if(m_data.lists, below);
}

const Cdb::Outcome* Cdb::Forced(const std::string& call, const std::string& path) const
{
    const auto found = m_outcomes.find(call + " " + path);
    return found == m_outcomes.end() ? nullptr : &found->second;
}

int Cdb::OpenSession()
{
    m_sessions[m_nextSocket] = std::make_shared<const Data>(m_data);
    return m_nextSocket++;
}

const Data* Cdb::SessionData(int socket) const
{
    const auto found = m_sessions.find(socket);
    return found == m_sessions.end() ? nullptr : found->second.get();
}

std::variant<Place, std::string> Cdb::Resolve(const Data& data, const std::string& path)
{
    Place place;
    std::string schemaPath;
    for (std::size_t at = 0; at < path.size();) {
        const std::optional<Step> step = TakeStep(path, at);
        if (!step) return "malformed path " + path;
        schemaPath += "/" + step->name;
        place.node = FindNode(schemaPath);
        if (place.node == nullptr) return "no such element " + step->name + " in " + path;
        place.instance += "/" + step->name;
        place.isEntry = step->key || step->index;
        if (place.isEntry && place.node->kind != Kind::kList) return step->name + " is no list";
        if (step->key) place.instance += "{" + *step->key + "}";
        if (step->index) {
            const std::vector<std::string> keys = Keys(data, place);
            if (*step->index >= keys.size()) return path + " does not exist";
            place.instance += "{" + keys[*step->index] + "}";
        }
        if (place.node->kind == Kind::kList && !place.isEntry && at < path.size())
            return "no key of " + step->name + " in " + path;
    }
    if (place.node == nullptr) return "empty path";
    return place;
}

bool Cdb::Exists(const Data& data, const Place& place)
{
    for (auto open = place.instance.find('{'); open != std::string::npos;) {
        const auto close = place.instance.find('}', open);
        const auto list = data.lists.find(place.instance.substr(0, open));
        if (list == data.lists.end() ||
            list->second.count(place.instance.substr(open + 1, close - open - 1)) == 0)
            return false;
        open = place.instance.find('{', close);
    }
    return true;
}

std::vector<std::string> Cdb::Keys(const Data& data, const Place& list)
{
    const auto found = data.lists.find(list.instance);
    if (found == data.lists.end()) return {};
    return {found->second.begin(), found->second.end()};
}

Value Cdb::Leaf(const Data& data, const SchemaNode& node, const std::string& instance) const
{
    if (const auto delivered = m_delivered.find(instance); delivered != m_delivered.end())
        return delivered->second;
    const std::string entry = instance.substr(0, instance.rfind('/'));
    if (node.Name() == "name" && entry.back() == '}') {
        const auto open = entry.rfind('{');
        return entry.substr(open + 1, entry.size() - open - 2);
    }
    if (const auto own = data.leaves.find(instance); own != data.leaves.end()) return own->second;
    if (node.defaultRef.empty()) return node.defaultValue;
    const SchemaNode* sibling = FindNode(node.Parent() + "/" + node.defaultRef);
    return Leaf(data, *sibling, entry + "/" + node.defaultRef);
}

std::vector<Value> Cdb::Leaves(const Data& data, const SchemaNode& node, const std::string& instance) const
{
    std::vector<Value> values;
    for (const SchemaNode* leaf : LeavesOf(node.path))
        values.push_back(Leaf(data, *leaf, instance + "/" + leaf->Name()));
    return values;
}

}  // namespace fakes
