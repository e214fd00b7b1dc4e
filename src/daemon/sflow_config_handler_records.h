// SPDX-License-Identifier: Apache-2.0
// What one commit stages: plain records, emptied at its start and sent to the sFlow service at its
// end. Not a mirror of the configuration. Used by SFlowConfigHandler.

#ifndef DAEMON_SFLOW_CONFIG_HANDLER_RECORDS_H
#define DAEMON_SFLOW_CONFIG_HANDLER_RECORDS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>

// The kind of an interface's collector attachment, and the index into the arrays of interface_st.
// Code that chooses by kind tests for Sample and takes every other value for Counter.
enum ECollector {
    Sample = 0,  // flow samples: the list flow-sampling-collector
    Counter = 1  // counter samples: the list counter-sampling-collector
};

// One collector. Its name is the key under which it is staged.
struct collector_st {
    bool enabled = false;
    std::uint32_t ip = 0;      // the address word as the database delivers it (network byte order)
    std::uint16_t dgsize = 0;  // datagram size, in the schema's unit
    std::uint16_t port = 0;    // UDP port, host byte order
    bool send = false;         // to be sent to the service at the end of the commit
};

// One interface's settings. Its name is the key under which it is staged.
struct interface_st {
    std::uint32_t rate = 0;
    std::uint16_t max_header_size = 0;
    std::uint16_t interval = 0;
    // Collector name to apply flag, by kind. True: to be attached at the end of the commit; false:
    // known and enabled, but unchanged by this commit.
    std::map<std::string, bool> collectors[2];
    // Collectors to detach, by kind. An interface that is deleted holds the one name "all" in both.
    std::set<std::string> removedCollectors[2];
    bool update = false;  // the settings themselves are to be sent
};

#endif
