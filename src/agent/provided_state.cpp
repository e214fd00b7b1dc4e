#include "agent/provided_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <vector>

#include "agent/provider_node.h"

namespace agent {
namespace {

/// Brackets that may stand inside each other in a provider's text: far more than our modules have.
constexpr int kMaxDepth = 64;

/// The parser works recursively.
bool IsTooDeep(const std::string& json)
{
    int depth = 0;
    bool quoted = false;
    for (std::size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (quoted) {
            if (c == '\\') ++at;
            if (c == '"') quoted = false;
        } else if (c == '"') {
            quoted = true;
        } else if (c == '{' || c == '[') {
            if (++depth > kMaxDepth) return true;
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    return false;
}

/// The schema nodes from the top level down to the node.
std::vector<const lysc_node*> Ancestry(const lysc_node* node)
{
    std::vector<const lysc_node*> nodes;
    for (; node != nullptr; node = node->parent) nodes.push_back(node);
    std::reverse(nodes.begin(), nodes.end());
    return nodes;
}

lyd_node* FindInstance(lyd_node* first, const lysc_node* schema)
{
    for (lyd_node* node = first; node != nullptr; node = node->next)
        if (node->schema == schema) return node;
    return nullptr;
}

/// Moves the container from one tree to the other, whose containers above it are made where needed.
bool Move(lyd_node* from, const lysc_node* container, Tree& state)
{
    const auto ancestry = Ancestry(container);
    lyd_node* moved = from;
    for (const lysc_node* schema : ancestry) {
        moved = FindInstance(schema == ancestry.front() ? moved : lyd_child_no_keys(moved), schema);
        if (moved == nullptr) return true;  // it has nothing to tell
    }
    lyd_node* parent = nullptr;
    for (const lysc_node* schema : ancestry) {
        if (schema == container) break;
        lyd_node* next = FindInstance(parent == nullptr ? state.get() : lyd_child_no_keys(parent), schema);
        if (next == nullptr && lyd_new_inner(parent, schema->module, schema->name, 0, &next) != LY_SUCCESS)
            return false;
        if (parent == nullptr && !state) state.reset(next);
        parent = next;
    }
    lyd_unlink_tree(moved);
    if (parent != nullptr && FindInstance(lyd_child_no_keys(parent), container) == nullptr &&
        lyd_insert_child(parent, moved) == LY_SUCCESS)
        return true;
    lyd_free_tree(moved);
    return false;
}

}  // namespace

std::string AddProvidedState(const ly_ctx* context, const Answer& answer, Tree& state)
{
    if (answer.outcome == Outcome::kGone) return "its connection is gone";
    if (answer.outcome == Outcome::kLate) return "it has not answered in time";
    const ipc::cdb::StateReply& reply = answer.message.state_reply();
    if (!reply.error().empty()) return reply.error();
    if (IsTooDeep(reply.json())) return "its answer is nested too deep";
    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
    lyd_node* raw = nullptr;
    const LY_ERR parsed = lyd_parse_data_mem(context, reply.json().c_str(), LYD_JSON,
                                             LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &raw);
    const Tree tree(raw);
    if (parsed != LY_SUCCESS) {
        const ly_err_item* last = ly_err_first(context);
        return std::string("its answer can't be read: ") +
               (last != nullptr && last->msg != nullptr ? last->msg : "no reason given");
    }
    for (const StateProvision& provided : answer.client->Providers()) {
        const lysc_node* container = FindProviderNode(context, provided.path);
        if (container != nullptr && tree && !Move(tree.get(), container, state))
            return "its data at " + provided.path + " can't be taken over";
    }
    return {};
}

}  // namespace agent
