// SPDX-License-Identifier: Apache-2.0
#include "netconf/rpc_error.h"

#include "netconf/xml.h"

namespace netconf {
namespace {

void AppendIfThere(std::string& out, std::string_view name, std::string_view text)
{
    if (!text.empty()) AppendElement(out, name, text);
}

void AppendPath(const RpcError& error, std::string& out)
{
    if (error.path.empty()) return;
    out.append("<error-path");
    for (const auto& [prefix, ns] : error.prefixes) {
        out.append(" xmlns:").append(prefix).append("=\"");
        AppendEscaped(out, ns);
        out.append("\"");
    }
    out.append(">");
    AppendEscaped(out, error.path);
    out.append("</error-path>");
}

void AppendInfo(const RpcError& error, std::string& out)
{
    if (error.info.empty()) return;
    out.append("<error-info>");
    for (const auto& [name, text] : error.info) AppendElement(out, name, text);
    out.append("</error-info>");
}

}  // namespace

void AppendXml(const RpcError& error, std::string& out)
{
    out.append("<rpc-error>");
    AppendIfThere(out, "error-type", error.type);
    AppendIfThere(out, "error-tag", error.tag);
    AppendIfThere(out, "error-severity", error.severity);
    AppendIfThere(out, "error-app-tag", error.appTag);
    AppendPath(error, out);
    if (!error.message.empty()) {
        out.append("<error-message xml:lang=\"en\">");
        AppendEscaped(out, error.message);
        out.append("</error-message>");
    }
    AppendInfo(error, out);
    out.append("</rpc-error>");
}

}  // namespace netconf
