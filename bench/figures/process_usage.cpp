// SPDX-License-Identifier: Apache-2.0
// What a process has in memory (see the header).

#include "figures/process_usage.h"

#include <ctime>
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

double CpuSeconds(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
        throw std::runtime_error("process " + std::to_string(process) + " has no clock: it has ended");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace figures
