// SPDX-License-Identifier: Apache-2.0
// What the streams of one exporter have in common, and the list of those that wait to be sent. The exporter
// owns it and its streams; only these use it.

#ifndef MANAGER_EXPORT_STREAM_SHARED_H
#define MANAGER_EXPORT_STREAM_SHARED_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "manager/export/stream_pool.h"

namespace manager {

class CollectorStream;

/// What it means that datagrams carry no mark, for operators.
std::string WithoutMark(const std::error_code& error);

struct StreamShared {
    std::function<std::chrono::system_clock::time_point()> clock;
    std::function<std::chrono::milliseconds()> uptime;
    std::uint32_t mark = 0;
    std::uint32_t agentAddress = 0;  // network byte order
    std::string limitation;
    StreamPool pool;
    std::vector<CollectorStream*> waiting;  // have had something to send since the last SendAll; no null

    /// Sends what waits on all streams, which gives all memory back to the pool.
    void SendAll();
};

}  // namespace manager

#endif
