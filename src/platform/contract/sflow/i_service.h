// SPDX-License-Identifier: Apache-2.0
// The client of the switch's sFlow service.

#ifndef SFLOW_I_SERVICE_H
#define SFLOW_I_SERVICE_H

#include <boost/any.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "../nettypes/ipv4_addr.h"

namespace sflow {

// Every operation is one-way: it is queued in order, never blocks, and its effect is not reported
// back. Outside the time between a found and a lost notice an operation has no effect. All calls
// and notices are on the server loop's thread.
class IService {
public:
    // A notice: the function, and what it is called with.
    using Notice = std::pair<std::function<void(boost::any)>, boost::any>;

    // Builds the process's client. `found` is called when the sFlow manager becomes reachable,
    // `lost` when it is gone; from the loop only, never from inside Build or the destructor. What
    // is sent from within `found` is the whole configuration: what an earlier session left at the
    // manager and this one has not sent by then is removed there.
    static std::unique_ptr<IService> Build(Notice found, Notice lost);

    IService() = default;
    IService(const IService&) = delete;
    IService& operator=(const IService&) = delete;
    virtual ~IService() = default;

    // Whether a session with the manager is open.
    virtual bool IsConnected() const = 0;

    // Adds a collector, or replaces the one of that name. `port` is in host byte order, `datagramSize` in
    // bytes of UDP payload.
    virtual void AddCollector(const std::string& name, const nettypes::IPv4Addr& address, std::uint16_t port,
                              std::uint16_t datagramSize) = 0;

    // Removes a collector. Attachments by its name stay and act again when it is added again.
    virtual void DeleteCollector(const std::string& name) = 0;

    // Creates the interface if it is not known, sets its numbers, and attaches the collectors named
    // (an empty name attaches none). Detaches nothing.
    //   rate           one packet of `rate` is sampled, on average
    //   direction      1 egress, 2 ingress, 3 both
    //   maxHeaderSize  bytes of a sampled packet that are exported, at most
    //   interval       seconds between two counter exports; 0 exports none
    virtual void UpdateInterface(const std::string& interface, const std::string& sampleCollector,
                                 const std::string& counterCollector, std::uint32_t rate, int direction,
                                 std::uint16_t maxHeaderSize, std::uint16_t interval) = 0;

    // Attach or detach one collector for flow samples or for counter samples.
    virtual void AddSampleCollector(const std::string& interface, const std::string& collector) = 0;
    virtual void RemoveSampleCollector(const std::string& interface, const std::string& collector) = 0;
    virtual void AddCounterCollector(const std::string& interface, const std::string& collector) = 0;
    virtual void RemoveCounterCollector(const std::string& interface, const std::string& collector) = 0;

    // Forgets the interface with all its attachments.
    virtual void UnsetInterface(const std::string& interface) = 0;

    // The agent address that every datagram carries.
    virtual void SetAgentAddress(const nettypes::IPv4Addr& address) = 0;
};

}  // namespace sflow

#endif
