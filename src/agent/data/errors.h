// SPDX-License-Identifier: Apache-2.0
// Turns typed errors of the database, and libyang's errors of a request, into <rpc-error>s. The only place
// that does.

#ifndef AGENT_DATA_ERRORS_H
#define AGENT_DATA_ERRORS_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cdb/model/error.h"
#include "netconf/rpc_error.h"

struct ly_ctx;

namespace agent {

using ErrorInfo = std::vector<std::pair<std::string, std::string>>;

/// Which layer refuses (RFC 6241, section 4.3).
enum class Layer { kRpc, kProtocol, kApplication };

netconf::RpcError MakeError(Layer layer, cdb::ErrorTag tag, std::string message, ErrorInfo info = {});

/// A warning beside a request that was carried out.
netconf::RpcError MakeWarning(std::string message);

/// An error of the database, or of the check of its data.
netconf::RpcError ToRpcError(const cdb::Error& error, const ly_ctx* context);
/// An error of a request outside its data.
netconf::RpcError ToProtocolError(const cdb::Error& error, const ly_ctx* context);
std::vector<netconf::RpcError> ToRpcErrors(const std::vector<cdb::Error>& errors, const ly_ctx* context);

/// The last error that libyang has stored, about a request's operation `name`.
netconf::RpcError RequestError(const ly_ctx* context, std::string_view name);

}  // namespace agent

#endif
