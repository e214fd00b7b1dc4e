// SPDX-License-Identifier: Apache-2.0
// A program at an interface's tcx ingress hook that does nothing: what any program there costs a packet.

#ifndef SAMPLING_EMPTY_PROGRAM_H
#define SAMPLING_EMPTY_PROGRAM_H

#include <cstdint>
#include <optional>

#include "base/unique_fd.h"

namespace sampling {

class EmptyProgram {
public:
    /// Loaded. Throws std::system_error where the kernel does not allow it.
    EmptyProgram();

    void Attach(std::uint32_t ifIndex);
    void Detach() { m_link.reset(); }

private:
    base::UniqueFd m_program;
    std::optional<base::UniqueFd> m_link;
};

}  // namespace sampling

#endif
