#include "agent/errors.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <cctype>
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
    TagRow{ErrorTag::kRollbackFailed, "rollback-failed", Layer::kApplication},
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
    switch (layer) {
    case Layer::kRpc:
        return "rpc";
    case Layer::kProtocol:
        return "protocol";
    case Layer::kApplication:
        break;
    }
    return "application";
}

/// The module names that stand before a ':' in a data path, outside of quoted key values, with their
/// namespaces.
std::vector<std::pair<std::string, std::string>> PrefixesOf(const std::string& path, const ly_ctx* context)
{
    std::vector<std::pair<std::string, std::string>> prefixes;
    char quote = 0;
    std::size_t begin = 0;  // of the current name
    for (std::size_t at = 0; at < path.size(); ++at) {
        const char c = path[at];
        if (quote != 0) {
            if (c == quote) quote = 0;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '/' || c == '[') {
            begin = at + 1;
        } else if (c == ':') {
            const std::string name = path.substr(begin, at - begin);
            const lys_module* module = ly_ctx_get_module_implemented(context, name.c_str());
            const auto known = [&name](const auto& prefix) { return prefix.first == name; };
            if (module != nullptr && std::none_of(prefixes.begin(), prefixes.end(), known))
                prefixes.emplace_back(name, module->ns);
        }
    }
    return prefixes;
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

/// The path inside <config>, where the one at hand leads there; libyang keeps what is wrong with values
/// there for later, so what it finds at once is wrong with an attribute.
std::string PathInConfig(const std::string& path)
{
    constexpr std::string_view kEdit = "/ietf-netconf:edit-config";
    if (!path.starts_with(kEdit)) return {};
    const std::string inner = path.substr(kEdit.size());
    return inner.substr(0, inner.find('/', 1)).find(':') == std::string::npos ? std::string() : inner;
}

/// What libyang says of a request, by how its message begins. `element`: whether error-info names the
/// node at the path (else what the message quotes).
struct RequestRow {
    std::string_view beginning;
    ErrorTag tag;
    const char* info;
    bool element;
};

constexpr std::array kRequestRows{
    RequestRow{"No module with namespace", ErrorTag::kUnknownNamespace, "bad-namespace", false},
    RequestRow{"Missing mandatory prefix", ErrorTag::kUnknownAttribute, "bad-attribute", false},
    RequestRow{"Unknown (or not implemented) YANG module", ErrorTag::kUnknownNamespace, "bad-namespace",
               false},
    RequestRow{"Annotation definition", ErrorTag::kUnknownAttribute, "bad-attribute", false},
    RequestRow{"Node ", ErrorTag::kUnknownElement, "bad-element", false},
    RequestRow{"Unexpected child element", ErrorTag::kUnknownElement, "bad-element", false},
    RequestRow{"Mandatory node", ErrorTag::kMissingElement, "bad-element", false},
    RequestRow{"Mandatory choice", ErrorTag::kMissingElement, "bad-element", false},
    RequestRow{"Data for both cases", ErrorTag::kBadElement, "bad-element", false},
    RequestRow{"Duplicate instance", ErrorTag::kBadElement, "bad-element", false},
    RequestRow{"Invalid", ErrorTag::kInvalidValue, "bad-element", true},
    RequestRow{"Unsatisfied", ErrorTag::kInvalidValue, "bad-element", true},
};

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
    result.path = error.path;
    result.prefixes = PrefixesOf(error.path, context);
    return result;
}

std::vector<netconf::RpcError> ToRpcErrors(const std::vector<cdb::Error>& errors, const ly_ctx* context)
{
    std::vector<netconf::RpcError> result;
    for (const cdb::Error& error : errors) result.push_back(ToRpcError(error, context));
    return result;
}

netconf::RpcError RequestError(const ly_ctx* context, std::string_view name)
{
    const ly_err_item* last = ly_err_first(context);
    while (last != nullptr && last->next != nullptr) last = last->next;
    const std::string said = last != nullptr && last->msg != nullptr ? last->msg : "no reason given";
    const std::string path = Quoted(last != nullptr && last->path != nullptr ? last->path : "");
    const std::string message = "the operation " + std::string(name) + " can't be read: " + said;

    const auto* row = std::find_if(kRequestRows.begin(), kRequestRows.end(), [&said](const RequestRow& each) {
        return said.starts_with(each.beginning);
    });
    if (row == kRequestRows.end()) return MakeError(Layer::kProtocol, ErrorTag::kBadElement, message);
    if (const std::string inner = PathInConfig(path); !inner.empty() && row->element) {
        cdb::Error attribute;
        attribute.tag = ErrorTag::kBadAttribute;
        attribute.message = "the attribute operation of " + LastName(path) + " is wrong: " + said;
        attribute.path = inner;
        attribute.info = {{"bad-attribute", "operation"}, {"bad-element", LastName(path)}};
        return ToRpcError(attribute, context);
    }
    ErrorInfo info{{row->info, row->element ? LastName(path) : Quoted(said)}};
    if (row->tag == ErrorTag::kUnknownNamespace || row->tag == ErrorTag::kUnknownAttribute)
        info.insert(info.begin() + (row->tag == ErrorTag::kUnknownAttribute ? 1 : 0),
                    {"bad-element", path.empty() ? std::string(name) : LastName(path)});
    netconf::RpcError error = MakeError(Layer::kProtocol, row->tag, message, std::move(info));
    error.path = path;
    error.prefixes = PrefixesOf(path, context);
    return error;
}

}  // namespace agent
