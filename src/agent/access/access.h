// SPDX-License-Identifier: Apache-2.0
// Access control (RFC 8341): holds the rules in force and derives from them what a session's user may do. The
// rules come from a file, which Reload reads again, or are the default ones.

#ifndef AGENT_ACCESS_ACCESS_H
#define AGENT_ACCESS_ACCESS_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "agent/access/access_grant.h"

struct ly_ctx;

namespace agent {

class Access {
public:
    struct Options {
        std::filesystem::path file;  // empty: the default rules
        std::filesystem::path yangDirectory;
        std::string adminGroup;  // by name; with the default rules
    };
    /// `schema` is what requests are about, and outlives this. Throws cdb::FatalError, which names the file
    /// and the line, if the file can't be used.
    Access(const ly_ctx* schema, Options options);
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    /// Reads the file again. Empty if it could; else why not, and the rules are as before.
    std::string Reload();

    /// Changes with each successful Reload: a grant made before is out of date.
    [[nodiscard]] std::uint64_t Generation() const { return m_generation; }

    /// No rule binds root, whose session is for recovery, nor, with the default rules, the process's own
    /// user.
    [[nodiscard]] std::shared_ptr<const AccessGrant> Grant(const AccessUser& user) const;

    /// What was denied since the start, for the state. The sender of a denial counts it.
    struct Denials {
        std::atomic<std::uint32_t> operations{0};
        std::atomic<std::uint32_t> dataWrites{0};
    };
    [[nodiscard]] Denials& Denied() { return m_denied; }
    [[nodiscard]] const Denials& Denied() const { return m_denied; }

private:
    const ly_ctx* m_schema;
    Options m_options;
    std::shared_ptr<const AccessGrant::Source> m_source;
    std::uint64_t m_generation = 0;
    Denials m_denied;
};

}  // namespace agent

#endif
