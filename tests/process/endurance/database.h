// SPDX-License-Identifier: Apache-2.0
// The configuration database as the manager sees it, played by a test for one purpose: to ask for the state.

#ifndef ENDURANCE_DATABASE_H
#define ENDURANCE_DATABASE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "support/frames.h"

namespace endurance {

class Database {
public:
    /// Listens on the path and waits for the manager, which tries again for ever. Throws.
    explicit Database(const std::filesystem::path& socket);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    /// What stands at /state/oam/sflow.
    nlohmann::json State();
    /// The entry of that name in a list of it. Throws std::out_of_range.
    nlohmann::json Entry(const std::string& list, const std::string& name);

private:
    int m_listening = -1;
    std::unique_ptr<support::FrameClient> m_manager;
    std::uint64_t m_requests = 0;
};

}  // namespace endurance

#endif
