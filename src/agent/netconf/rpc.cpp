// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/rpc.h"

#include <libyang/libyang.h>

#include <cstdint>
#include <string>
#include <utility>

#include "agent/data/errors.h"
#include "agent/netconf/rpc_scan.h"
#include "netconf/xml.h"

namespace agent {
namespace {

using cdb::ErrorTag;

netconf::RpcError Malformed(const std::string& problem, bool speaksBase11)
{
    const ErrorTag tag = speaksBase11 ? ErrorTag::kMalformedMessage : ErrorTag::kOperationFailed;
    return MakeError(Layer::kRpc, tag, "the message can't be read: " + problem);
}

/// The namespace of an operation of that name; empty if there is none.
std::string NamespaceOfOperation(const ly_ctx* context, const std::string& name)
{
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        if (module->implemented == 0 || module->compiled == nullptr) continue;
        for (const lysc_node_action* each = module->compiled->rpcs; each != nullptr; each = each->next)
            if (name == each->name) return module->ns;
    }
    return {};
}

netconf::RpcError UnknownOperation(const ly_ctx* context, const RpcScan& scan)
{
    const std::string ns = NamespaceOfOperation(context, scan.operation);
    const std::string where =
        scan.operationNs.empty() ? "without a namespace" : "in the namespace \"" + scan.operationNs + "\"";
    return MakeError(Layer::kProtocol, ErrorTag::kOperationNotSupported,
                     "there is no operation \"" + scan.operation + "\" " + where +
                         (ns.empty() ? "" : "; give it the namespace \"" + ns + "\""),
                     {{"bad-element", scan.operation}});
}

/// The error that the scan has found; nullopt if none.
std::optional<netconf::RpcError> ScanError(const ly_ctx* context, const RpcScan& scan, bool speaksBase11)
{
    using End = RpcScan::End;
    switch (scan.end) {
    case End::kGood:
        break;
    case End::kBadXml:
        if (scan.problem.kind == netconf::XmlProblem::Kind::kMalformed)
            return Malformed(scan.problem.text, speaksBase11);
        return MakeError(Layer::kRpc, ErrorTag::kTooBig, "the message is refused: " + scan.problem.text);
    case End::kNoRpc:
        return MakeError(Layer::kProtocol, ErrorTag::kUnknownElement,
                         "the message is no <rpc> of the NETCONF base namespace, but <" + scan.root + ">",
                         {{"bad-element", scan.root}});
    case End::kNoMessageId:
        return MakeError(Layer::kRpc, ErrorTag::kMissingAttribute, "the <rpc> has no message-id",
                         {{"bad-attribute", "message-id"}, {"bad-element", "rpc"}});
    case End::kTwoOperations:
        return MakeError(Layer::kProtocol, ErrorTag::kUnknownElement,
                         "the <rpc> has more than one operation; send each in its own",
                         {{"bad-element", scan.operation}});
    case End::kUnknownOperation:
        return UnknownOperation(context, scan);
    case End::kRefused:
        return scan.inData ? ToRpcError(scan.refusal, context) : ToProtocolError(scan.refusal, context);
    }
    if (scan.operation.empty())
        return MakeError(Layer::kProtocol, ErrorTag::kMissingElement, "the <rpc> has no operation",
                         {{"bad-element", "rpcOperation"}});
    if (scan.filter && scan.filterType != "subtree")
        return MakeError(Layer::kProtocol, ErrorTag::kBadAttribute,
                         "a filter of type \"" + scan.filterType + "\" is not offered; use a subtree filter",
                         {{"bad-attribute", "type"}, {"bad-element", "filter"}});
    return std::nullopt;
}

/// The configuration as data of the schema; null if libyang refuses it. Parsed apart, because inside an
/// operation, where it may be anything, libyang reads each value twice.
Tree ParseConfig(const ly_ctx* context, const std::string& text)
{
    lyd_node* raw = nullptr;
    const LY_ERR result =
        lyd_parse_data_mem(context, text.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &raw);
    Tree tree(raw);
    return result == LY_SUCCESS ? std::move(tree) : nullptr;
}

/// Puts the tree into the empty <config> of the operation.
void PutConfig(lyd_node* operation, Tree config)
{
    const lyd_node* source = ChildNamed(operation, "source");
    const lyd_node* place = ChildNamed(source == nullptr ? operation : source, "config");
    auto* any = reinterpret_cast<lyd_node_any*>(const_cast<lyd_node*>(place));
    lyd_any_copy_value(&any->node, nullptr, LYD_ANYDATA_DATATREE);  // frees what is there
    any->value_type = LYD_ANYDATA_DATATREE;
    any->value.tree = config.release();
}

}  // namespace

std::variant<Rpc, BadRpc> ReadRpc(const guard::SchemaIndex& index, std::string message, bool speaksBase11,
                                  const guard::Limits& limits)
{
    const ly_ctx* context = index.Context();
    RpcScan scan = ScanRpc(index, message, limits);
    if (auto error = ScanError(context, scan, speaksBase11))
        return BadRpc{scan.attributes, *std::move(error),
                      scan.end != RpcScan::End::kBadXml && !scan.operation.empty()};
    BlankXmlAttributes(scan, message);
    // libyang would read the filter by the schema; the scan has read its text.
    if (scan.filter) message.erase(scan.filterBegin, scan.filterEnd - scan.filterBegin);
    Tree config;
    if (scan.config.IsThere()) {
        const std::string text = scan.config.Text(message);
        config = ParseConfig(context, netconf::PlainXml(text));
        scan.config.Replace(message, config ? std::string_view{} : std::string_view(text));
    }
    message = netconf::PlainXml(std::move(message));

    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
    ly_in* rawInput = nullptr;
    if (ly_in_new_memory(message.c_str(), &rawInput) != LY_SUCCESS)
        return BadRpc{scan.attributes, MakeError(Layer::kRpc, ErrorTag::kResourceDenied, "out of memory"),
                      true};
    const cdb::Owned<ly_in> input(rawInput);
    lyd_node* rawEnvelope = nullptr;
    lyd_node* rawOperation = nullptr;
    const LY_ERR parsed = lyd_parse_op(context, nullptr, input.get(), LYD_XML, LYD_TYPE_RPC_NETCONF,
                                       &rawEnvelope, &rawOperation);
    const Tree envelope(rawEnvelope);
    Tree operation(rawOperation);

    if (parsed != LY_SUCCESS || !operation ||
        lyd_validate_op(operation.get(), nullptr, LYD_TYPE_RPC_YANG, nullptr) != LY_SUCCESS)
        return BadRpc{scan.attributes, RequestError(context, scan.operation), true};
    if (config) PutConfig(operation.get(), std::move(config));
    return Rpc{std::move(scan.attributes), std::move(operation), std::move(scan.filter)};
}

}  // namespace agent
