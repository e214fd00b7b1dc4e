// SPDX-License-Identifier: Apache-2.0
#include "agent/state/provided_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <unordered_map>

#include <boost/asio/post.hpp>

#include "agent/clients/provider_node.h"
#include "base/text.h"

namespace agent {
namespace {

/// Bytes of a provider's text that an error shows.
constexpr std::size_t kShown = 64;
constexpr std::size_t kMaxWarning = 1024;

std::string Shown(std::string_view text)
{
    const bool cut = text.size() > kShown;
    return "\"" + base::Presentable(text, kShown) + (cut ? "...\"" : "\"");
}

bool IsLeafNode(const lysc_node* node) { return (node->nodetype & LYD_NODE_TERM) != 0; }
bool IsInner(const lysc_node* node) { return (node->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0; }

bool Holds(const StateTree::Node& node, const lysc_node* leaf)
{
    return std::any_of(node.leaves.begin(), node.leaves.end(),
                       [leaf](const StateTree::Leaf& each) { return each.schema == leaf; });
}

}  // namespace

/// The way from the top, for errors; made into text only for them.
struct ProvidedState::Trail {
    const Trail* above;
    const lysc_node* node;
    const std::vector<std::string_view>* keys;  // null: a container

    [[nodiscard]] std::string Text() const
    {
        std::string text = above != nullptr          ? above->Text()
                           : node->parent == nullptr ? ""
                                                     : PathOf(node->parent);
        text.append("/").append(node->name);
        if (keys == nullptr) return text;
        text.append("{");
        std::string_view separator;
        for (const std::string_view key : *keys) {
            text.append(separator).append(base::Presentable(key, kShown));
            separator = " ";
        }
        return text.append("}");
    }
};

/// The names of one part, looked up among the children of each schema node once.
class ProvidedState::Names {
public:
    explicit Names(const ipc::cdb::StateReply& part) : m_part(part) {}

    /// Null if the node has no child of that name, or there is no such name.
    const lysc_node* Child(const lysc_node* parent, std::uint32_t name)
    {
        if (name >= static_cast<std::uint32_t>(m_part.names_size())) return nullptr;
        if (parent != m_parent) {
            m_parent = parent;
            m_own = &m_children[parent];
            m_own->resize(static_cast<std::size_t>(m_part.names_size()));
        }
        const lysc_node*& child = (*m_own)[name];
        if (child != nullptr) return child;
        const std::string& wanted = m_part.names(static_cast<int>(name));
        const lysc_node* each = nullptr;
        while ((each = lys_getnext(each, parent, parent->module->compiled, 0)) != nullptr)
            if (wanted == each->name && (IsLeafNode(each) || IsInner(each))) return child = each;
        return nullptr;
    }

    [[nodiscard]] std::string Text(std::uint32_t name) const
    {
        return name < static_cast<std::uint32_t>(m_part.names_size())
                   ? Shown(m_part.names(static_cast<int>(name)))
                   : "number " + std::to_string(name);
    }

private:
    const ipc::cdb::StateReply& m_part;
    std::unordered_map<const lysc_node*, std::vector<const lysc_node*>> m_children;
    const lysc_node* m_parent = nullptr;  // of the last look-up: mostly the next leaf is of the same node
    std::vector<const lysc_node*>* m_own = nullptr;
};

ProvidedState::ProvidedState(const ly_ctx* context, const std::vector<StateProvision>& provided)
    : m_checker(context)
{
    for (const StateProvision& each : provided)
        if (const lysc_node* node = FindProviderNode(context, each.path))
            m_containers.emplace_back(each.path, node);
}

std::string ProvidedState::Take(const ipc::cdb::StateReply& part)
{
    if (part.names_size() > kMaxNames) return "it has more than " + std::to_string(kMaxNames) + " names";
    const std::size_t before = m_bytes;
    Names names(part);
    for (const auto& tree : part.trees())
        if (std::string problem = TakeTree(tree, names); !problem.empty()) return problem;
    TakeWarnings(part);
    if (part.more() && m_bytes == before) return "it sends parts in which there is nothing";
    return {};
}

void ProvidedState::TakeWarnings(const ipc::cdb::StateReply& part)
{
    for (const std::string& warning : part.warnings())
        if (m_warnings.size() < kMaxWarnings) m_warnings.push_back(base::Presentable(warning, kMaxWarning));
}

std::string ProvidedState::TakeTree(const ipc::cdb::StateReply_Tree& tree, Names& names)
{
    const auto at = std::find_if(m_containers.begin(), m_containers.end(),
                                 [&tree](const auto& each) { return each.first == tree.path(); });
    if (at == m_containers.end())
        return "it answers for " + Shown(tree.path()) + ", which it does not provide";
    return TakeNode(tree.node(), m_tree.At(at->second), {nullptr, at->second, nullptr}, names);
}

std::string ProvidedState::TakeNode(const ipc::cdb::StateNode& from, StateTree::Node& into,
                                    const Trail& trail, Names& names)
{
    const lysc_node* schema = trail.node;
    if (from.leaves_size() != from.values_size())
        return trail.Text() + " has " + std::to_string(from.leaves_size()) + " leaves and " +
               std::to_string(from.values_size()) + " values";
    into.leaves.reserve(into.leaves.size() + static_cast<std::size_t>(from.leaves_size()));
    for (int i = 0; i < from.leaves_size(); ++i) {
        const lysc_node* leaf = names.Child(schema, from.leaves(i));
        if (leaf == nullptr) return trail.Text() + " has no leaf " + names.Text(from.leaves(i));
        if (std::string problem = TakeLeaf(leaf, from.values(i), into, trail); !problem.empty())
            return problem;
    }
    for (const ipc::cdb::StateNode& child : from.children()) {
        const lysc_node* node = names.Child(schema, child.name());
        if (node == nullptr || !IsInner(node))
            return trail.Text() + " has no container or list " + names.Text(child.name());
        m_bytes += sizeof(StateTree::Node);
        const Trail below{&trail, node, nullptr};
        std::string problem;
        if (node->nodetype == LYS_LIST)
            problem = TakeEntry(child, node, into, below, names);
        else if (!child.keys().empty())
            problem = below.Text() + " has keys, and is a container";
        else
            problem = TakeNode(child, StateTree::ContainerIn(into, node), below, names);
        if (!problem.empty()) return problem;
    }
    return {};
}

std::string ProvidedState::TakeLeaf(const lysc_node* leaf, std::string_view value, StateTree::Node& into,
                                    const Trail& trail)
{
    const auto where = [&] { return trail.Text() + "/" + leaf->name; };
    if (!IsLeafNode(leaf)) return where() + " is no leaf, and has a value";
    if (lysc_is_key(leaf)) return where() + " is a key, and stands among the leaves";
    if (leaf->nodetype == LYS_LEAF && Holds(into, leaf)) return where() + " is there twice";
    const auto checked = value.size() > kMaxValue ? std::nullopt : m_checker.Check(leaf, value);
    if (!checked) return where() + " can't be " + Shown(value);
    m_bytes += sizeof(StateTree::Leaf) + checked->size();
    if (m_bytes > kMaxBytes) return "its answer is too large";
    into.leaves.push_back({leaf, m_tree.Keep(*checked)});
    return {};
}

std::string ProvidedState::TakeKeys(const ipc::cdb::StateNode& from, const lysc_node* list,
                                    const Trail& trail, std::vector<std::string_view>& keys)
{
    const lysc_node* key = lysc_node_child(list);
    keys.reserve(static_cast<std::size_t>(from.keys_size()));
    for (const std::string& value : from.keys()) {
        if (key == nullptr || !lysc_is_key(key)) return trail.Text() + " has an entry with too many keys";
        // A key with replaced characters would name another entry.
        const bool isText = value.size() <= kMaxValue && base::IsPresentable(value);
        const auto checked = isText ? m_checker.Check(key, value) : std::nullopt;
        if (!checked) return trail.Text() + " has an entry whose " + key->name + " can't be " + Shown(value);
        m_bytes += sizeof(std::string_view) + checked->size();
        keys.push_back(m_tree.Keep(*checked));
        key = key->next;
    }
    if (key != nullptr && lysc_is_key(key)) return trail.Text() + " has an entry without " + key->name;
    if (m_bytes > kMaxBytes) return "its answer is too large";
    return {};
}

std::string ProvidedState::TakeEntry(const ipc::cdb::StateNode& from, const lysc_node* list,
                                     StateTree::Node& into, const Trail& trail, Names& names)
{
    std::vector<std::string_view> keys;
    if (std::string problem = TakeKeys(from, list, trail, keys); !problem.empty()) return problem;
    StateTree::Node* entry = StateTree::Append(into, list, keys);
    const Trail own{trail.above, list, &keys};
    if (entry == nullptr) return own.Text() + " is there twice, or behind an entry with a greater key";
    return TakeNode(from, *entry, own, names);
}

StateQuery::StateQuery(boost::asio::io_context& loop, base::Timers& timers, const ly_ctx* context,
                       std::chrono::milliseconds timeout, Done done)
    : m_loop(loop), m_timers(timers), m_context(context), m_timeout(timeout), m_done(std::move(done))
{
}

void StateQuery::Run(std::vector<StateQuestion> questions)
{
    m_running = questions.size();
    for (StateQuestion& question : questions) {
        m_open.push_back(std::make_unique<Open>());
        StateOutcome& outcome = m_open.back()->outcome;
        outcome.client = question.client;
        for (const auto& part : question.request.parts()) outcome.paths.push_back(part.path());
        outcome.state = std::make_unique<ProvidedState>(m_context, question.client->Providers());
    }
    for (std::size_t i = 0; i < questions.size(); ++i) Ask(i, std::move(questions[i].request));
}

void StateQuery::Ask(std::size_t index, ipc::cdb::StateRequest&& request)
{
    Open& open = *m_open[index];
    const ClientPtr& client = open.outcome.client;
    open.outcome.key = {ipc::cdb::ClientMessage::kStateReply, client->NextRequest()};
    open.until = m_timers.Now() + kWhole * m_timeout;
    ipc::cdb::ServerMessage message;
    request.set_request(open.outcome.key.second);
    *message.mutable_state_request() = std::move(request);
    const auto take = [self = shared_from_this(), index](const ipc::cdb::ClientMessage* answer) {
        self->Take(index, answer);
    };
    if (client->Ask(open.outcome.key, message, take)) return Await(index);
    boost::asio::post(m_loop, [self = shared_from_this(), index] { self->Take(index, nullptr); });
}

void StateQuery::Await(std::size_t index)
{
    m_open[index]->timer = m_timers.After(m_timeout, [weak = weak_from_this(), index] {
        const auto self = weak.lock();
        if (!self) return;
        self->m_open[index]->outcome.late = true;
        self->End(index, "does not answer");
    });
}

void StateQuery::Take(std::size_t index, const ipc::cdb::ClientMessage* message)
{
    Open& open = *m_open[index];
    if (open.ended) return;
    if (message == nullptr) return End(index, "has ended its connection");
    const ipc::cdb::StateReply& part = message->state_reply();
    if (!part.error().empty()) return End(index, "can't tell: " + part.error());
    if (const std::string fault = open.outcome.state->Take(part); !fault.empty())
        return End(index, "has sent what is no state: " + fault);
    if (!part.more()) return End(index, {});
    if (m_timers.Now() > open.until)
        return End(index, "has not come to an end of its answer in " + DurationText(kWhole * m_timeout));
    open.outcome.client->Expect(open.outcome.key,
                                [self = shared_from_this(), index](const ipc::cdb::ClientMessage* answer) {
                                    self->Take(index, answer);
                                });
    Await(index);
}

void StateQuery::End(std::size_t index, std::string problem)
{
    Open& open = *m_open[index];
    open.ended = true;
    open.timer.reset();
    open.outcome.problem = std::move(problem);
    if (open.outcome.late) open.outcome.client->Forget(open.outcome.key);
    if (--m_running > 0) return;
    std::vector<StateOutcome> outcomes;
    outcomes.reserve(m_open.size());
    for (const auto& each : m_open) outcomes.push_back(std::move(each->outcome));
    std::exchange(m_done, nullptr)(std::move(outcomes));
}

std::string DurationText(std::chrono::milliseconds duration)
{
    const auto ms = duration.count();
    return ms % 1000 == 0 ? std::to_string(ms / 1000) + " s" : std::to_string(ms) + " ms";
}

}  // namespace agent
