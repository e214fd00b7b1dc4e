// SPDX-License-Identifier: Apache-2.0
#include "agent/data/errors.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace agent {
namespace {

using cdb::ErrorTag;

struct TagRow {
    ErrorTag tag;
    const char* name;
    Layer layer;  // of the database's errors; those that RFC 6241 keeps to the protocol stay there
};

constexpr std::array kTags{
    TagRow{ErrorTag::kInUse, "in-use", Layer::kProtocol},
    TagRow{ErrorTag::kInvalidValue, "invalid-value", Layer::kApplication},
    TagRow{ErrorTag::kTooBig, "too-big", Layer::kApplication},
    TagRow{ErrorTag::kMissingAttribute, "missing-attribute", Layer::kApplication},
    TagRow{ErrorTag::kBadAttribute, "bad-attribute", Layer::kApplication},
    TagRow{ErrorTag::kUnknownAttribute, "unknown-attribute", Layer::kApplication},
    TagRow{ErrorTag::kMissingElement, "missing-element", Layer::kApplication},
    TagRow{ErrorTag::kBadElement, "bad-element", Layer::kApplication},
    TagRow{ErrorTag::kUnknownElement, "unknown-element", Layer::kApplication},
    TagRow{ErrorTag::kUnknownNamespace, "unknown-namespace", Layer::kApplication},
    TagRow{ErrorTag::kAccessDenied, "access-denied", Layer::kApplication},
    TagRow{ErrorTag::kLockDenied, "lock-denied", Layer::kProtocol},
    TagRow{ErrorTag::kResourceDenied, "resource-denied", Layer::kApplication},
    TagRow{ErrorTag::kDataExists, "data-exists", Layer::kApplication},
    TagRow{ErrorTag::kDataMissing, "data-missing", Layer::kApplication},
    TagRow{ErrorTag::kOperationNotSupported, "operation-not-supported", Layer::kApplication},
    TagRow{ErrorTag::kOperationFailed, "operation-failed", Layer::kApplication},
    TagRow{ErrorTag::kMalformedMessage, "malformed-message", Layer::kRpc},
};

const TagRow& RowOf(ErrorTag tag)
{
    return *std::find_if(kTags.begin(), kTags.end(), [tag](const TagRow& row) { return row.tag == tag; });
}

const char* NameOf(Layer layer)
{
    static constexpr std::array kNames{"rpc", "protocol", "application"};
    return kNames.at(static_cast<std::size_t>(layer));
}

/// The text between the first pair of quotes: the name of what libyang complains about.
std::string Quoted(std::string_view message)
{
    const std::size_t begin = message.find('"');
    if (begin == std::string_view::npos) return {};
    const std::size_t end = message.find('"', begin + 1);
    if (end == std::string_view::npos) return {};
    return std::string(message.substr(begin + 1, end - begin - 1));
}

/// `Data location "/ietf-netconf:lock/target", line number 1.` holds the data path between its quotes.
std::string LastName(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::size_t colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

/// Which element a message of libyang is about: the one at its path, the one that it quotes, or one for the
/// choice that it quotes.
enum class Subject { kAtPath, kQuoted, kChoice };

/// libyang's errors of a request, by how the message begins. The scan before has refused what is unknown,
/// given twice or has a wrong attribute.
struct RequestRow {
    std::string_view beginning;
    ErrorTag tag;
    Subject subject;
};

/// Of a parameter that does not go with the value of another one.
constexpr std::string_view kWhen = "When condition";

constexpr std::array kRequestRows{
    RequestRow{"Mandatory node", ErrorTag::kMissingElement, Subject::kQuoted},
    RequestRow{"Mandatory choice", ErrorTag::kMissingElement, Subject::kChoice},
    RequestRow{"Data for both cases", ErrorTag::kBadElement, Subject::kQuoted},
    RequestRow{"Invalid", ErrorTag::kInvalidValue, Subject::kAtPath},
    RequestRow{"Unsatisfied", ErrorTag::kInvalidValue, Subject::kAtPath},
    RequestRow{kWhen, ErrorTag::kInvalidValue, Subject::kAtPath},
};

bool IsInChoice(const lysc_node* node, const std::string& choice)
{
    for (const lysc_node* above = node->parent; above != nullptr; above = above->parent)
        if (above->nodetype == LYS_CHOICE && choice == above->name) return true;
    return false;
}

/// An element that stands for the operation's missing choice, which is no element itself: the container
/// around the choice, or its first case.
std::string ElementOfChoice(const ly_ctx* context, const std::string& moduleName, std::string_view operation,
                            const std::string& choice)
{
    const lys_module* module = ly_ctx_get_module_implemented(context, moduleName.c_str());
    const lysc_node* parent =
        module == nullptr ? nullptr
                          : lys_find_child(nullptr, module, operation.data(), operation.size(), LYS_RPC, 0);
    const lysc_node* child = nullptr;
    while (parent != nullptr && (child = lys_getnext(child, parent, nullptr, 0)) != nullptr) {
        if (IsInChoice(child, choice)) return child->name;
        const lysc_node* inner =
            child->nodetype == LYS_CONTAINER ? lys_getnext(nullptr, child, nullptr, 0) : nullptr;
        if (inner != nullptr && IsInChoice(inner, choice)) return child->name;
    }
    return choice;
}

/// A path for <error-path>: absolute XPath with a prefix before every name, because in XPath a name without
/// one is in no namespace.
struct ErrorPath {
    std::string text;
    std::vector<std::pair<std::string, std::string>> prefixes;  // with their namespaces
};

constexpr const char* kNetconf = "ietf-netconf";

bool IsNameBegin(char c) { return c != '.' && c != '*' && (c < '0' || c > '9'); }

class PathWriter {
public:
    explicit PathWriter(const ly_ctx* context) : m_context(context) {}

    /// A name of the path, with or without its module's in front.
    void Name(std::string_view name)
    {
        const std::size_t colon = name.find(':');
        if (colon != std::string_view::npos) {
            m_module = name.substr(0, colon);
            name.remove_prefix(colon + 1);
        }
        if (m_result.text == "/" && IsOperation(name)) {
            Append(kNetconf, "rpc");
            m_result.text += '/';
        }
        Append(m_module, name);
    }

    /// "[name='eth1']", "[1]", "[.='x']".
    void Predicate(std::string_view predicate)
    {
        const std::size_t equals = predicate.find('=');
        if (equals == std::string_view::npos || !IsNameBegin(predicate[1])) {
            m_result.text += predicate;
            return;
        }
        m_result.text += '[';
        const std::string_view name = predicate.substr(1, equals - 1);
        const std::size_t colon = name.find(':');
        if (colon == std::string_view::npos)
            Append(m_module, name);
        else
            Append(std::string(name.substr(0, colon)), name.substr(colon + 1));
        m_result.text += predicate.substr(equals);
    }

    void Slash() { m_result.text += '/'; }

    ErrorPath Take() { return std::move(m_result); }

private:
    [[nodiscard]] bool IsOperation(std::string_view name) const
    {
        const lys_module* module = ly_ctx_get_module_implemented(m_context, m_module.c_str());
        return module != nullptr &&
               lys_find_child(nullptr, module, name.data(), name.size(), LYS_RPC, 0) != nullptr;
    }

    void Append(const std::string& module, std::string_view name)
    {
        const lys_module* known = ly_ctx_get_module_implemented(m_context, module.c_str());
        if (known != nullptr) {
            const auto same = [&module](const auto& prefix) { return prefix.first == module; };
            if (std::none_of(m_result.prefixes.begin(), m_result.prefixes.end(), same))
                m_result.prefixes.emplace_back(module, known->ns);
            m_result.text.append(module).append(":");
        }
        m_result.text += name;
    }

    const ly_ctx* m_context;
    std::string m_module;
    ErrorPath m_result;
};

/// The end of the predicate that begins the text: behind its first ']' outside quotes.
std::size_t EndOfPredicate(std::string_view text)
{
    char quote = 0;
    for (std::size_t at = 1; at < text.size(); ++at) {
        if (quote != 0) {
            if (text[at] == quote) quote = 0;
        } else if (text[at] == '\'' || text[at] == '"') {
            quote = text[at];
        } else if (text[at] == ']') {
            return at + 1;
        }
    }
    return text.size();
}

/// Converts libyang's data path, which names a module only where it changes. The prefixes are the modules'
/// names. A path that begins with an operation gets <rpc> before it.
ErrorPath ToErrorPath(std::string_view dataPath, const ly_ctx* context)
{
    PathWriter writer(context);
    while (!dataPath.empty()) {
        std::size_t length = 1;
        if (dataPath.front() == '/') {
            writer.Slash();
        } else if (dataPath.front() == '[') {
            length = EndOfPredicate(dataPath);
            writer.Predicate(dataPath.substr(0, length));
        } else {
            length = std::min(dataPath.find_first_of("/["), dataPath.size());
            writer.Name(dataPath.substr(0, length));
        }
        dataPath.remove_prefix(length);
    }
    return writer.Take();
}

/// The module of the operation that a data path begins with.
std::string ModuleOf(const std::string& dataPath)
{
    const std::size_t colon = dataPath.find(':');
    return dataPath.empty() || colon == std::string::npos ? kNetconf : dataPath.substr(1, colon - 1);
}

/// The part of a data path that is inside the <config> of a request; empty if none is.
std::string PathInConfig(std::string_view dataPath)
{
    constexpr std::string_view kConfig = "/config/";
    if (!dataPath.starts_with("/ietf-netconf:") && !dataPath.starts_with("/ietf-netconf-nmda:")) return {};
    const std::size_t config = dataPath.find(kConfig);
    if (config == std::string_view::npos) return {};
    const std::string_view inner = dataPath.substr(config + kConfig.size() - 1);
    const bool isQualified = inner.substr(0, inner.find('/', 1)).find(':') != std::string_view::npos;
    return isQualified ? std::string(inner) : std::string();
}

}  // namespace

netconf::RpcError MakeError(Layer layer, ErrorTag tag, std::string message, ErrorInfo info)
{
    netconf::RpcError error;
    error.type = NameOf(layer);
    error.tag = RowOf(tag).name;
    error.message = std::move(message);
    error.info = std::move(info);
    return error;
}

netconf::RpcError MakeWarning(std::string message)
{
    netconf::RpcError warning =
        MakeError(Layer::kApplication, ErrorTag::kOperationFailed, std::move(message));
    warning.severity = "warning";
    return warning;
}

netconf::RpcError ToRpcError(const cdb::Error& error, const ly_ctx* context)
{
    netconf::RpcError result = MakeError(RowOf(error.tag).layer, error.tag, error.message, error.info);
    result.appTag = error.appTag;
    ErrorPath path = ToErrorPath(error.path, context);
    result.path = std::move(path.text);
    result.prefixes = std::move(path.prefixes);
    return result;
}

netconf::RpcError ToProtocolError(const cdb::Error& error, const ly_ctx* context)
{
    netconf::RpcError result = ToRpcError(error, context);
    result.type = NameOf(Layer::kProtocol);
    return result;
}

std::vector<netconf::RpcError> ToRpcErrors(const std::vector<cdb::Error>& errors, const ly_ctx* context)
{
    std::vector<netconf::RpcError> result;
    result.reserve(errors.size());
    for (const cdb::Error& error : errors) result.push_back(ToRpcError(error, context));
    return result;
}

netconf::RpcError RequestError(const ly_ctx* context, std::string_view name)
{
    const ly_err_item* last = ly_err_last(context);
    const std::string said = last != nullptr && last->msg != nullptr ? last->msg : "no reason given";
    const std::string path = Quoted(last != nullptr && last->path != nullptr ? last->path : "");

    const auto* row = std::find_if(kRequestRows.begin(), kRequestRows.end(), [&said](const RequestRow& each) {
        return said.starts_with(each.beginning);
    });
    const std::string inner = PathInConfig(path);
    cdb::Error error;
    // A module's own message says what is wrong with a value.
    const bool isValue = last != nullptr && last->vecode == LYVE_DATA;
    error.tag = row != kRequestRows.end() ? row->tag
                : isValue                 ? ErrorTag::kInvalidValue
                                          : ErrorTag::kBadElement;
    error.message = "the operation " + std::string(name) + " can't be read: " + said;
    error.path = inner.empty() ? path : inner;
    std::string element = path.empty() ? std::string(name) : LastName(path);
    if (row != kRequestRows.end() && row->subject == Subject::kQuoted) element = Quoted(said);
    if (row != kRequestRows.end() && row->subject == Subject::kChoice) {
        const std::string module = ModuleOf(path);
        element = ElementOfChoice(context, module, name, Quoted(said));
        error.path = '/' + module + ':' + std::string(name) + '/' + element;
    }
    if (said.starts_with(kWhen))
        error.message =
            "the parameter " + element + " of " + std::string(name) +
            " does not go with the others; leave it out, or change what its condition is about: " + said;
    error.info = {{"bad-element", element}};
    return inner.empty() ? ToProtocolError(error, context) : ToRpcError(error, context);
}

}  // namespace agent
