// SPDX-License-Identifier: Apache-2.0
// What a process has in memory (see the header).

#include "figures/resident.h"

#include <fstream>
#include <stdexcept>
#include <string>

namespace figures {

double ResidentMegabytes(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:") {
            double kibibytes = 0;
            status >> kibibytes;
            return kibibytes * 1024 / 1e6;
        }
    throw std::runtime_error("no resident size of process " + std::to_string(process));
}

}  // namespace figures
