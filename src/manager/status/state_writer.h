// SPDX-License-Identifier: Apache-2.0
// What the manager shows of itself, as the state's model has it: records written as nodes of one part of the
// answer to the database. Used by state_answer.

#ifndef MANAGER_STATUS_STATE_WRITER_H
#define MANAGER_STATUS_STATE_WRITER_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manager/status/diagnosis.h"
#include "manager/status/state_name.h"
#include "manager/status/state_wanted.h"
#include "manager/status/view.h"

namespace ipc::cdb {
class StateNode;
class StateReply;
}  // namespace ipc::cdb

namespace manager {

struct Configured;

class StateWriter {
public:
    /// `part` must outlive it. All that is written goes below `path`.
    StateWriter(ipc::cdb::StateReply& part, const std::string& path);

    void Manager(const ManagerStatus& status, const WantedLeaves& wanted);
    /// `address`: network byte order in memory.
    void AgentAddress(std::uint32_t address);
    /// `problems` are the collector's own.
    void Collector(const View::Collector& shown, WallTime now, const std::vector<Problem>& problems,
                   const WantedLeaves& wanted);
    /// `configured` may be null: then what only it shows is left out.
    void Interface(const View::Interface& shown, const View& view, const Configured* configured,
                   const std::vector<Problem>& problems, const WantedLeaves& wanted);
    /// To be called in ascending order of subject, name and reason.
    void Problem(const manager::Problem& problem);

private:
    friend class NodeWriter;
    /// The name's number in the part.
    std::uint32_t Number(StateName name);
    ipc::cdb::StateNode& Add(StateName name);

    ipc::cdb::StateReply& m_part;
    ipc::cdb::StateNode& m_root;
    std::array<std::optional<std::uint32_t>, kStateNames> m_numbers;  // null: not in the part yet
};

}  // namespace manager

#endif
