// SPDX-License-Identifier: Apache-2.0
// Makes a counter sample of what the kernel knows of an interface. Values in, values out. Used by the
// poller.

#ifndef MANAGER_EXPORT_POLLER_SAMPLE_H
#define MANAGER_EXPORT_POLLER_SAMPLE_H

#include <cstdint>

#include "net/counters/counters.h"
#include "net/links/links.h"
#include "wire/sample.h"

namespace manager {

/// The IANAifType of a link: from its kind, else from its hardware type (ARPHRD_*).
[[nodiscard]] std::uint32_t InterfaceType(const net::Link& link);

/// The generic record. What Linux does not count stays "not counted": broadcasts, multicasts sent, unknown
/// protocols; and so do multicasts received while the driver reports none, but for devices that are known to
/// count them. What is not counted is among the unicasts.
///
/// The record has 32 bits for packets: counts are sent modulo 2^32, as the format has it. A count that is
/// all ones modulo 2^32 can't be told from "not counted"; it is sent as it is, and the next one is right.
[[nodiscard]] wire::GenericCounters MakeGenericCounters(const net::Link& link,
                                                        const net::LinkCounters& counters);

/// The Ethernet record, likewise; what is absent is "not counted".
[[nodiscard]] wire::EthernetCounters MakeEthernetCounters(const net::EthernetCounters& counters);

/// The record of a bond's or team's member, likewise. Linux does not tell the administrative states: they are
/// 0.
[[nodiscard]] wire::LagCounters MakeLagCounters(const net::AggregateMember& member);

}  // namespace manager

#endif
