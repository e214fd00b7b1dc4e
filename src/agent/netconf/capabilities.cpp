// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/capabilities.h"

#include <string>

#include "netconf/names.h"

namespace agent {

netconf::Hello MakeHello(const cdb::Schema& schema)
{
    const std::string prefix = "urn:ietf:params:netconf:capability:";
    netconf::Hello hello;
    hello.capabilities = {
        std::string(netconf::kBase10),
        std::string(netconf::kBase11),
        prefix + "candidate:1.0",
        prefix + "validate:1.1",
        prefix + "rollback-on-error:1.0",
        prefix + "with-defaults:1.0?basic-mode=explicit&also-supported=report-all,trim",
    };
    for (const cdb::Schema::Module& module : schema.Modules()) {
        std::string capability = module.ns + "?module=" + module.name;
        if (!module.revision.empty()) capability += "&revision=" + module.revision;
        hello.capabilities.push_back(std::move(capability));
    }
    return hello;
}

}  // namespace agent
