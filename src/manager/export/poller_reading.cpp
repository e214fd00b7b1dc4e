// SPDX-License-Identifier: Apache-2.0
#include "manager/export/poller_reading.h"

#include <system_error>

namespace manager {

void Reading::Do()
{
    links = {};
    ethernet.clear();
    error.clear();
    for (const std::uint32_t ifIndex : forgotten) reader->Forget(ifIndex);
    try {
        links = reader->Read(indexes);
    } catch (const std::system_error& failed) {
        error = failed.what();
    }
    for (const net::LinkCounters& each : links)
        if (const auto counters = reader->ReadEthernet(each.ifIndex))
            ethernet.push_back({each.ifIndex, *counters});
}

}  // namespace manager
