// SPDX-License-Identifier: Apache-2.0
// One reading of counters: what is asked for, and what the kernel answers. It is done beside the loop, and
// all that it touches is its own meanwhile. Used by the poller.

#ifndef MANAGER_EXPORT_POLLER_READING_H
#define MANAGER_EXPORT_POLLER_READING_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "net/counters/counters.h"

namespace manager {

struct Reading {
    explicit Reading(std::shared_ptr<net::CounterReader> from) : reader(std::move(from)) {}

    /// Reads all that is asked for, in place of what was found before. Errors of the kernel do not throw:
    /// they are in `error`.
    void Do();

    const std::shared_ptr<net::CounterReader> reader;

    // What is asked for.
    std::vector<std::uint32_t> indexes;
    std::vector<std::uint32_t> forgotten;  // before: these are gone for good

    // What was found.
    struct Ethernet {
        std::uint32_t ifIndex = 0;
        net::EthernetCounters counters;
    };
    std::span<const net::LinkCounters> links;  // in any order
    std::vector<Ethernet> ethernet;            // in the same order, if the driver counts
    std::string error;                         // why nothing was found; empty: no error
};

}  // namespace manager

#endif
