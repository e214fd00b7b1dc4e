// SPDX-License-Identifier: Apache-2.0
#include "agent/access/access.h"

#include <unistd.h>

#include <utility>

#include "agent/access/access_file.h"
#include "cdb/model/error.h"

namespace agent {

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
