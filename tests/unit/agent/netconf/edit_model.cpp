// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/edit_model.h"

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>
#include <utility>

#include "agent/netconf/edit_model_value.h"
#include "netconf/xml.h"

namespace agent_tests {
namespace {

using Kind = ModelNode::Kind;
using Answer = Expected::Answer;

constexpr std::string_view kSflowPath = "/config/oam/sflow";
constexpr int kMaxOfOneEntry = 8;

bool IsKey(const EditNode& node) { return std::string_view(node.node->name) == "name"; }

const std::string& KeyOf(const EditNode& entry)
{
    return std::find_if(entry.children.begin(), entry.children.end(), IsKey)->text;
}

/// What is refused wherever it stands, whatever the operations are.
bool HasItsPlace(const EditNode& node);

bool HaveTheirPlaces(const std::vector<EditNode>& siblings)
{
    std::map<std::pair<const ModelNode*, std::string>, int> count;
    for (const EditNode& node : siblings) {
        if (!HasItsPlace(node)) return false;
        const bool isEntry = node.node->kind == Kind::kList;
        if (++count[{node.node, isEntry ? KeyOf(node) : ""}] > (isEntry ? kMaxOfOneEntry : 1)) return false;
    }
    return true;
}

bool HasItsPlace(const EditNode& node)
{
    static const std::set<std::string> kOperations{"", "merge", "replace", "create", "delete", "remove"};
    if (node.isOutOfPlace || !kOperations.contains(node.operation)) return false;
    if (node.node->kind == Kind::kList && std::none_of(node.children.begin(), node.children.end(), IsKey))
        return false;
    return HaveTheirPlaces(node.children);
}

class Application {
public:
    explicit Application(ModelState state) : m_state(std::move(state)) {}

    bool Run(const std::vector<EditNode>& edit, const std::string& operation)
    {
        if (operation == "replace" && edit.empty()) m_state.clear();
        return Siblings(edit, operation, "");
    }

    [[nodiscard]] const ModelState& Result() const { return m_state; }
    [[nodiscard]] bool IsDoubtful() const { return m_isDoubtful; }

private:
    bool Siblings(const std::vector<EditNode>& siblings, const std::string& inherited,
                  const std::string& above)
    {
        return std::all_of(siblings.begin(), siblings.end(),
                           [&](const EditNode& node) { return Node(node, inherited, above); });
    }

    bool Node(const EditNode& node, const std::string& inherited, const std::string& above)
    {
        const std::string& operation = node.operation.empty() ? inherited : node.operation;
        const std::string path = above + '/' + node.node->name;
        if (node.node->kind == Kind::kLeaf) return IsKey(node) ? Key(node) : Leaf(node, operation, path);
        if (node.node->kind == Kind::kContainer) return Container(node, operation, path);
        const ModelValue key = ValueOf(node.node->children.front(), KeyOf(node));
        return key.isGood && Entry(node, operation, path + '[' + key.canonical + ']');
    }

    bool Key(const EditNode& node)
    {
        // Only that it can't go by itself is certain.
        if (node.operation == "create" || node.operation == "replace") m_isDoubtful = true;
        return node.operation != "delete" && node.operation != "remove";
    }

    bool Leaf(const EditNode& node, const std::string& operation, const std::string& path)
    {
        const ModelValue value = ValueOf(*node.node, node.text);
        const bool isThere = m_state.contains(path) && !m_byCallpoint.contains(path);
        if (operation == "delete" || operation == "remove") {
            if (!value.isGood && !node.text.empty()) m_isDoubtful = true;
            if (isThere) m_state.erase(path);
            return isThere || operation == "remove";
        }
        m_isDoubtful = m_isDoubtful || value.isDoubtful;
        if (!value.isGood) return false;
        if (operation == "none") return isThere;
        if (operation == "create" && isThere) return false;
        m_state[path] = value.canonical;
        m_byCallpoint.erase(path);
        return true;
    }

    /// A plain container is there where something is in it.
    bool Container(const EditNode& node, const std::string& operation, const std::string& path)
    {
        const auto first = m_state.lower_bound(path + '/');
        const bool isThere = first != m_state.end() && first->first.starts_with(path + '/');
        if (operation == "create" && isThere) return false;
        if (operation == "delete" && !isThere) return false;
        if (operation == "delete" || operation == "remove") return TakeOut(path, node);
        if (operation == "replace") TakeOut(path);
        return Siblings(node.children, operation, path);
    }

    bool Entry(const EditNode& node, const std::string& operation, const std::string& path)
    {
        const bool isThere = m_state.contains(path);
        if (operation == "create" && isThere) return false;
        if (operation == "delete" && !isThere) return false;
        if (operation == "none" && !isThere) return false;
        if (operation == "delete" || operation == "remove") return TakeOut(path, node);
        if (operation == "replace") TakeOut(path);
        if (!m_state.contains(path)) Make(node, path);
        return Siblings(node.children, operation, path);
    }

    void Make(const EditNode& node, const std::string& path)
    {
        m_state[path] = "";
        if (path != std::string(kSflowPath) + "/interface[" + KeyOf(node) + ']') return;
        const std::string leaf = path + "/default-sampling-rate";
        m_state[leaf] = kCallpointRate;
        m_byCallpoint.insert(leaf);
    }

    void TakeOut(const std::string& path)
    {
        const auto isBelow = [&path](const std::string& other) {
            return other == path || other.starts_with(path + '/');
        };
        std::erase_if(m_state, [&](const auto& each) { return isBelow(each.first); });
        std::erase_if(m_byCallpoint, isBelow);
    }

    /// With what stands below it, which means nothing any more and may be wrong.
    bool TakeOut(const std::string& path, const EditNode& node)
    {
        TakeOut(path);
        Doubt(node);
        return true;
    }

    void Doubt(const EditNode& node)
    {
        for (const EditNode& child : node.children) {
            const bool isLeaf = child.node->kind == Kind::kLeaf;
            if (isLeaf && !ValueOf(*child.node, child.text).isGood) m_isDoubtful = true;
            if (!child.operation.empty()) m_isDoubtful = true;
            Doubt(child);
        }
    }

    ModelState m_state;
    std::set<std::string> m_byCallpoint;  // leaves: absent for the rest of the edit
    bool m_isDoubtful = false;
};

class StateReader final : public netconf::XmlVisitor {
public:
    bool OnStart(const netconf::XmlElement& element) override
    {
        m_open.push_back({(m_open.empty() ? "" : m_open.back().path) + '/' + std::string(element.name), ""});
        m_isLeaf = true;
        return true;
    }

    bool OnText(std::size_t, std::string_view text) override
    {
        m_open.back().text += text;
        return true;
    }

    bool OnEnd(std::size_t, std::size_t) override
    {
        const Open done = std::move(m_open.back());
        m_open.pop_back();
        if (std::exchange(m_isLeaf, false) && !m_open.empty()) {
            if (done.path.ends_with("/name"))
                m_state[m_open.back().path += '[' + done.text + ']'] = "";
            else if (!done.text.empty())
                m_state[done.path] = done.text;
        }
        return true;
    }

    ModelState m_state;

private:
    struct Open {
        std::string path;
        std::string text;
    };
    std::vector<Open> m_open;
    bool m_isLeaf = false;  // nothing has ended in the innermost open element
};

}  // namespace

ModelState StateOf(const std::string& data)
{
    StateReader reader;
    if (data.empty()) return {};
    if (const auto wrong = netconf::ReadXml(data, reader))
        throw std::runtime_error("what was read is no XML: " + *wrong);
    return std::move(reader.m_state);
}

std::string Difference(const ModelState& wanted, const ModelState& found)
{
    std::string text;
    const auto tell = [&text](const char* what, const ModelState& from, const ModelState& other) {
        for (const auto& [path, value] : from) {
            const auto at = other.find(path);
            if (at == other.end() || at->second != value) text += what + path + " = " + value + '\n';
        }
    };
    tell("missing: ", wanted, found);
    tell("too much: ", found, wanted);
    return text;
}

bool IsValid(const ModelState& state)
{
    const std::string collector = std::string(kSflowPath) + "/collector[";
    return std::all_of(state.begin(), state.end(), [&](const auto& each) {
        const std::string& path = each.first;
        if (!path.ends_with(']')) return true;
        if (path.starts_with(collector)) return state.contains(path + "/ip");
        const std::size_t at = path.find("-sampling-collector[");
        return at == std::string::npos || state.contains(collector + path.substr(path.find('[', at) + 1));
    });
}

Expected Expect(const ModelState& before, const std::vector<EditNode>& edit, const EditParameters& parameters)
{
    static constexpr std::array<std::string_view, 4> kDefaults{"", "merge", "replace", "none"};
    static constexpr std::array<std::string_view, 4> kTests{"", "test-then-set", "set", "test-only"};
    // Which parts of an edit with continue-on-error stand, this model does not say.
    static constexpr std::array<std::string_view, 4> kOnError{"", "stop-on-error", "rollback-on-error",
                                                              "continue-on-error"};
    const auto has = [](const auto& values, const std::string& value) {
        return std::find(values.begin(), values.end(), value) != values.end();
    };
    if (!has(kDefaults, parameters.defaultOperation) || !has(kTests, parameters.testOption) ||
        !has(kOnError, parameters.errorOption) || !HaveTheirPlaces(edit))
        return {Answer::kRefused, {}};
    Application application(before);
    const std::string operation = parameters.defaultOperation.empty() ? "merge" : parameters.defaultOperation;
    if (!application.Run(edit, operation)) return {Answer::kRefused, {}};
    if (parameters.testOption != "set" && !IsValid(application.Result())) return {Answer::kRefused, {}};
    const Answer answer = application.IsDoubtful() ? Answer::kEither : Answer::kOk;
    return {answer, parameters.testOption == "test-only" ? before : application.Result()};
}

}  // namespace agent_tests
