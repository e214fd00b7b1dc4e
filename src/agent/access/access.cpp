// SPDX-License-Identifier: Apache-2.0
// Holds the rules in force, and reads a file of them: the container nacm of ietf-netconf-acm in XML or RFC
// 7951 JSON.

#include "agent/access/access.h"

#include <libyang/libyang.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "agent/data/yang_tree.h"
#include "base/expected.h"
#include "netconf/xml.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxFile = std::size_t{1} << 20;

/// What is wrong with the file; caught within this file.
struct Problem {
    std::string text;
};

std::string Contents(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string text(kMaxFile + 1, '\0');
    if (!in || !fs::is_regular_file(file))
        throw Problem{"can't be opened: " + std::string(std::strerror(errno))};
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (in.bad()) throw Problem{"can't be read"};
    if (text.size() > kMaxFile) throw Problem{"has more than " + std::to_string(kMaxFile) + " bytes"};
    if (text.find('\0') != std::string::npos) throw Problem{"is no text"};
    return text;
}

/// "line 4: Invalid enumeration value ..." of libyang's "Data location ..., line number 4."
std::string LastMessage(const ly_ctx* context)
{
    const ly_err_item* item = ly_err_last(context);
    if (item == nullptr || item->msg == nullptr) return "no reason given";
    std::string text = item->msg;
    if (item->path == nullptr) return text;
    const std::string where = item->path;
    constexpr std::string_view kLine = "ine number ";
    if (const std::size_t at = where.find(kLine); at != std::string::npos)
        return "line " +
               where.substr(at + kLine.size(),
                            where.find_first_not_of("0123456789", at + kLine.size()) - at - kLine.size()) +
               ": " + text;
    return text + " (" + where + ")";
}

/// The tree of a file's text. The context must outlive it.
Tree Parse(const ly_ctx* context, std::string text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    const bool isJson = begin != std::string::npos && text[begin] == '{';
    if (!isJson) {
        if (const auto problem = netconf::CheckXml(text)) throw Problem{*problem};
        text = netconf::PlainXml(std::move(text));
    }
    lyd_node* raw = nullptr;
    const LY_ERR parsed = lyd_parse_data_mem(context, text.c_str(), isJson ? LYD_JSON : LYD_XML,
                                             LYD_PARSE_STRICT | LYD_PARSE_NO_STATE,
                                             LYD_VALIDATE_NO_STATE | LYD_VALIDATE_PRESENT, &raw);
    Tree tree(raw);
    if (parsed != LY_SUCCESS) throw Problem{LastMessage(context)};
    for (const lyd_node* node = tree.get(); node != nullptr; node = node->next)
        if (std::strcmp(node->schema->module->name, "ietf-netconf-acm") != 0)
            throw Problem{std::string("holds ") + node->schema->name + ", which is no access rule"};
    if (!tree) throw Problem{"has no container nacm of ietf-netconf-acm"};
    return tree;
}

/// The steps of an instance-identifier as libyang prints it: module names where they change, keys in
/// predicates, missing ones left out.
class PathReader {
public:
    PathReader(std::string_view path, const ly_ctx* schema) : m_rest(path), m_schema(schema) {}

    void Into(AccessRule& rule)
    {
        if (m_rest == "/") return;
        const lysc_node* node = nullptr;
        const lys_module* module = nullptr;
        while (Skip('/')) {
            std::string name = Until("/[");
            if (const std::size_t colon = name.find(':'); colon != std::string::npos) {
                module = ly_ctx_get_module_implemented(m_schema, name.substr(0, colon).c_str());
                name.erase(0, colon + 1);
            }
            node = module == nullptr ? nullptr : lys_find_child(node, module, name.c_str(), 0, 0, 0);
            if (node == nullptr)
                throw Problem{"rule \"" + rule.name + "\": its path names " + name +
                              ", which the modules do not have"};
            Keys(node, rule);
        }
        rule.node = node;
    }

private:
    bool Skip(char c)
    {
        const bool there = m_rest.starts_with(c);
        if (there) m_rest.remove_prefix(1);
        return there;
    }

    std::string Until(std::string_view ends)
    {
        const std::size_t end = std::min(m_rest.find_first_of(ends), m_rest.size());
        std::string text(m_rest.substr(0, end));
        m_rest.remove_prefix(end);
        return text;
    }

    void Keys(const lysc_node* list, AccessRule& rule)
    {
        std::map<std::string, std::string> given;
        while (Skip('[')) {
            std::string key = Until("=");
            key.erase(0, key.find(':') + 1);
            Skip('=');
            const char quote = m_rest.empty() ? '\'' : m_rest.front();
            Skip(quote);
            given[key] = Until(std::string(1, quote));
            Skip(quote);
            Skip(']');
        }
        if (list->nodetype != LYS_LIST) return;
        const lysc_node* child = lysc_node_child(list);
        for (; child != nullptr && lysc_is_key(child); child = child->next) {
            const auto found = given.find(child->name);
            rule.keys.push_back(found == given.end() ? std::nullopt : std::optional(found->second));
        }
    }

    std::string_view m_rest;
    const ly_ctx* m_schema;
};

bool IsPermit(const lyd_node* parent, std::string_view name, bool ifMissing)
{
    const std::string_view text = ChildText(parent, name);
    return text.empty() ? ifMissing : text == "permit";
}

std::uint8_t OperationsIn(std::string_view text)
{
    if (text.empty() || text == "*") return kAllAccess;
    constexpr std::pair<std::string_view, AccessOperation> kBits[] = {{"create", AccessOperation::kCreate},
                                                                      {"read", AccessOperation::kRead},
                                                                      {"update", AccessOperation::kUpdate},
                                                                      {"delete", AccessOperation::kDelete},
                                                                      {"exec", AccessOperation::kExec}};
    std::uint8_t bits = 0;
    for (const auto& [name, bit] : kBits)
        if ((" " + std::string(text) + " ").find(" " + std::string(name) + " ") != std::string::npos)
            bits |= static_cast<std::uint8_t>(bit);
    return bits;
}

AccessRule ReadRule(const lyd_node* entry, const ly_ctx* schema)
{
    AccessRule rule;
    rule.name = ChildText(entry, "name");
    if (const auto module = ChildText(entry, "module-name"); !module.empty()) rule.module = module;
    rule.operations = OperationsIn(ChildText(entry, "access-operations"));
    rule.permit = ChildText(entry, "action") == "permit";
    const auto ofKind = [&](const char* leaf, AccessRule::Kind kind) {
        if (ChildNamed(entry, leaf) == nullptr) return;
        rule.kind = kind;
        rule.target = ChildText(entry, leaf);
    };
    ofKind("rpc-name", AccessRule::Kind::kOperation);
    ofKind("notification-name", AccessRule::Kind::kNotification);
    ofKind("path", AccessRule::Kind::kData);
    if (rule.kind == AccessRule::Kind::kData) PathReader(std::exchange(rule.target, {}), schema).Into(rule);
    return rule;
}

void ReadGroups(const lyd_node* groups, AccessRules& rules)
{
    for (const lyd_node* group = lyd_child(groups); group != nullptr; group = group->next) {
        auto& users = rules.groups[std::string(ChildText(group, "name"))];
        for (const lyd_node* leaf = lyd_child(group); leaf != nullptr; leaf = leaf->next)
            if (std::strcmp(leaf->schema->name, "user-name") == 0) users.emplace(lyd_get_value(leaf));
    }
}

AccessRules RulesOf(const lyd_node* nacm, const ly_ctx* schema)
{
    AccessRules rules;
    rules.enabled = ChildText(nacm, "enable-nacm") != "false";
    rules.readDefault = IsPermit(nacm, "read-default", true);
    rules.writeDefault = IsPermit(nacm, "write-default", false);
    rules.execDefault = IsPermit(nacm, "exec-default", true);
    rules.externalGroups = ChildText(nacm, "enable-external-groups") != "false";
    if (const lyd_node* groups = ChildNamed(nacm, "groups")) ReadGroups(groups, rules);
    for (const lyd_node* child = lyd_child(nacm); child != nullptr; child = child->next) {
        if (std::strcmp(child->schema->name, "rule-list") != 0) continue;
        AccessRuleList list;
        list.name = ChildText(child, "name");
        for (const lyd_node* leaf = lyd_child(child); leaf != nullptr; leaf = leaf->next) {
            if (std::strcmp(leaf->schema->name, "group") == 0) list.groups.emplace(lyd_get_value(leaf));
            if (std::strcmp(leaf->schema->name, "rule") == 0) list.rules.push_back(ReadRule(leaf, schema));
        }
        rules.lists.push_back(std::move(list));
    }
    return rules;
}

/// The rules, their paths resolved against `schema`; or what is wrong with the file, with its line. The file
/// is parsed in a context of its own, made of the modules in `yangDirectory`: a rule about a node that the
/// modules do not have is an error, not a rule without effect.
base::expected<AccessRules, std::string> ReadAccessFile(const fs::path& file, const fs::path& yangDirectory,
                                                        const ly_ctx* schema)
try {
    const std::string text = Contents(file);
    const auto own = cdb::Schema::Load(yangDirectory);
    if (ly_ctx_load_module(own->Context(), "ietf-netconf-acm", nullptr, nullptr) == nullptr)
        throw Problem{"can't be checked: the YANG module ietf-netconf-acm does not load: " +
                      LastMessage(own->Context())};
    const Tree tree = Parse(own->Context(), text);
    return RulesOf(tree.get(), schema);
} catch (const Problem& problem) {
    return base::Unexpected("the access rules " + file.string() + ": " + problem.text);
} catch (const std::exception& error) {
    return base::Unexpected("the access rules " + file.string() + " can't be read: " + error.what());
}

}  // namespace

Access::Access(const ly_ctx* schema, Options options) : m_schema(schema), m_options(std::move(options))
{
    if (const std::string problem = Reload(); !problem.empty()) throw cdb::FatalError(problem);
}

std::string Access::Reload()
{
    AccessRules rules;
    if (m_options.file.empty()) {
        rules = DefaultAccessRules(m_options.adminGroup);
    } else {
        auto read = ReadAccessFile(m_options.file, m_options.yangDirectory, m_schema);
        if (!read) return std::move(read.error());
        rules = *std::move(read);
    }
    m_source = std::make_shared<const AccessGrant::Source>(
        AccessGrant::Source{std::move(rules), ProtectedNodes::Of(m_schema), ++m_generation});
    return {};
}

std::shared_ptr<const AccessGrant> Access::Grant(const AccessUser& user) const
{
    const bool everything = user.uid == 0 || (m_options.file.empty() && user.uid == ::geteuid());
    return std::make_shared<const AccessGrant>(m_source, user, everything);
}

}  // namespace agent
