// SPDX-License-Identifier: Apache-2.0
// Any bytes as a NETCONF message: as the whole of it, inside of <config>, or inside of <filter>, by the
// first byte of the input. Whatever it is, it is refused with an error, or becomes a request in
// which nothing is unknown.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <variant>

#include "agent/netconf/rpc.h"
#include "cdb/schema/schema.h"
#include "opaque_nodes.h"

namespace {

std::string Message(std::uint8_t how, const std::string& bytes)
{
    const std::string open = "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"1\">";
    switch (how % 3) {
    case 0:
        return open + "<edit-config><target><candidate/></target><config>" + bytes +
               "</config></edit-config></rpc>";
    case 1:
        return open + "<get><filter>" + bytes + "</filter></get></rpc>";
    default:
        return bytes;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto schema = cdb::Schema::Load(SFLOW_FUZZ_YANG_DIR);
    static const guard::SchemaIndex index(schema->Context());
    if (size == 0) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto result = agent::ReadRpc(index, Message(data[0], bytes), true);
    if (const auto* bad = std::get_if<agent::BadRpc>(&result)) {
        if (bad->error.tag.empty() || bad->error.message.empty()) std::abort();
        return 0;
    }
    const auto& rpc = std::get<agent::Rpc>(result);
    if (!fuzz::UnknownOpaque(rpc.operation.get(), nullptr, schema->Context()).empty()) std::abort();
    return 0;
}
