#include "agent/rpc.h"

#include <libyang/libyang.h>

#include <string_view>
#include <utility>
#include <vector>

#include "agent/errors.h"
#include "agent/rpc_scan.h"
#include "netconf/names.h"
#include "netconf/xml.h"

namespace agent {
namespace {

using cdb::ErrorTag;

void AppendAttribute(std::string& out, std::string_view name, std::string_view value)
{
    out.append(" ").append(name).append("=\"");
    netconf::AppendEscaped(out, value);
    out.append("\"");
}

/// The envelope's attributes as text, each prefix declared once.
std::string AttributesOf(const lyd_node* envelope)
{
    std::string out;
    std::vector<std::string_view> declared{"xml"};
    const auto isDeclared = [&declared](std::string_view prefix) {
        for (const std::string_view each : declared)
            if (each == prefix) return true;
        return false;
    };
    const lyd_attr* attribute = reinterpret_cast<const lyd_node_opaq*>(envelope)->attr;
    for (; attribute != nullptr; attribute = attribute->next) {
        std::string name = attribute->name.name;
        if (attribute->name.prefix != nullptr) {
            const std::string prefix = attribute->name.prefix;
            name.insert(0, prefix + ":");
            if (!isDeclared(prefix) && attribute->name.module_ns != nullptr) {
                AppendAttribute(out, "xmlns:" + prefix, attribute->name.module_ns);
                declared.push_back(attribute->name.prefix);
            }
        }
        AppendAttribute(out, name, attribute->value);
    }
    return out;
}

bool HasMessageId(const lyd_node* envelope)
{
    const lyd_attr* attribute = reinterpret_cast<const lyd_node_opaq*>(envelope)->attr;
    for (; attribute != nullptr; attribute = attribute->next)
        if (attribute->name.prefix == nullptr && std::string_view(attribute->name.name) == "message-id")
            return true;
    return false;
}

netconf::RpcError Malformed(const std::string& problem, bool speaksBase11)
{
    const ErrorTag tag = speaksBase11 ? ErrorTag::kMalformedMessage : ErrorTag::kOperationFailed;
    return MakeError(Layer::kRpc, tag, "the message can't be read: " + problem);
}

/// What is wrong with the message as far as the scan has seen; nullopt for nothing.
std::optional<netconf::RpcError> ScanError(const RpcScan& scan, bool speaksBase11)
{
    if (!scan.problem.empty()) return Malformed(scan.problem, speaksBase11);
    if (scan.root != "rpc" || scan.rootNs != netconf::kBaseNamespace)
        return MakeError(Layer::kRpc, ErrorTag::kUnknownElement,
                         "the message is no <rpc> of the NETCONF base namespace, but <" + scan.root + ">",
                         {{"bad-element", scan.root}});
    return std::nullopt;
}

std::optional<netconf::RpcError> FilterError(const RpcScan& scan)
{
    if (scan.filters > 1)
        return MakeError(Layer::kProtocol, ErrorTag::kBadElement, "there is more than one <filter>; give one",
                         {{"bad-element", "filter"}});
    if (scan.filters == 1 && scan.filterType != "subtree")
        return MakeError(Layer::kProtocol, ErrorTag::kBadAttribute,
                         "a filter of type \"" + scan.filterType + "\" is not offered; use a subtree filter",
                         {{"bad-attribute", "type"}, {"bad-element", "filter"}});
    return std::nullopt;
}

/// Why libyang has not made an operation of a message that has an envelope.
netconf::RpcError OperationError(const ly_ctx* context, const RpcScan& scan, const lyd_node* operation)
{
    if (scan.operation.empty())
        return MakeError(Layer::kRpc, ErrorTag::kMissingElement, "the <rpc> has no operation");
    const lys_module* module = ly_ctx_get_module_implemented_ns(context, scan.operationNs.c_str());
    const bool known = module != nullptr &&
                       lys_find_child(nullptr, module, scan.operation.c_str(), 0, LYS_RPC, 0) != nullptr;
    if (operation == nullptr && !known)
        return MakeError(
            Layer::kProtocol, ErrorTag::kOperationNotSupported,
            "there is no operation \"" + scan.operation + "\" in the namespace \"" + scan.operationNs + "\"",
            {{"bad-element", scan.operation}});
    return RequestError(context, scan.operation);
}

}  // namespace

std::variant<Rpc, BadRpc> ReadRpc(const ly_ctx* context, std::string message, bool speaksBase11)
{
    RpcScan scan = ScanRpc(message);
    if (auto error = ScanError(scan, speaksBase11)) return BadRpc{{}, *std::move(error)};
    // libyang would measure the filter by the schema; it means what its text says.
    if (scan.filter) message.erase(scan.filterBegin, scan.filterEnd - scan.filterBegin);

    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
    ly_in* input = nullptr;
    if (ly_in_new_memory(message.c_str(), &input) != LY_SUCCESS)
        return BadRpc{{}, MakeError(Layer::kRpc, ErrorTag::kResourceDenied, "out of memory")};
    lyd_node* rawEnvelope = nullptr;
    lyd_node* rawOperation = nullptr;
    const LY_ERR parsed =
        lyd_parse_op(context, nullptr, input, LYD_XML, LYD_TYPE_RPC_NETCONF, &rawEnvelope, &rawOperation);
    ly_in_free(input, 0);
    const Tree envelope(rawEnvelope);
    Tree operation(rawOperation);

    const std::string attributes = envelope ? AttributesOf(envelope.get()) : std::string();
    if (parsed != LY_SUCCESS) {
        if (auto problem = netconf::CheckXml(message))
            return BadRpc{attributes, Malformed(*problem, speaksBase11)};
    }
    if (envelope && !HasMessageId(envelope.get()))
        return BadRpc{attributes,
                      MakeError(Layer::kRpc, ErrorTag::kMissingAttribute, "the <rpc> has no message-id",
                                {{"bad-attribute", "message-id"}, {"bad-element", "rpc"}})};
    if (parsed != LY_SUCCESS || !operation)
        return BadRpc{attributes, OperationError(context, scan, operation.get())};
    if (auto error = FilterError(scan)) return BadRpc{attributes, *std::move(error)};
    lyd_node* checked = operation.get();
    if (lyd_validate_op(checked, nullptr, LYD_TYPE_RPC_YANG, nullptr) != LY_SUCCESS)
        return BadRpc{attributes, OperationError(context, scan, checked)};
    return Rpc{attributes, std::move(operation), std::move(scan.filter)};
}

}  // namespace agent
