// SPDX-License-Identifier: Apache-2.0
// Sends encoded samples to the collectors: one stream of datagrams for each, with its own size, sequence
// and errors. What goes wrong with one collector costs that collector's datagrams only.

#ifndef MANAGER_EXPORT_EXPORTER_H
#define MANAGER_EXPORT_EXPORTER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include "manager/export/collector_stream.h"
#include "manager/service/operation.h"
#include "manager/settings/own_settings.h"
#include "wire/sample.h"

namespace manager {

class Exporter {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    using Uptime = std::function<std::chrono::milliseconds()>;  // since the agent's start; never goes back

    /// Sockets carry `mark` (SO_MARK) if that is allowed; 0: none.
    Exporter(Clock clock, Uptime uptime, std::uint32_t mark);
    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;
    ~Exporter() { Flush(); }

    /// The agent address of all datagrams from here on, network byte order; what is waiting is sent with
    /// the old one.
    void SetAgentAddress(std::uint32_t address);

    /// Adds a collector or changes it. Whatever changes leaves its sequence as it is, and what waited is sent
    /// as it was meant to be. Another DSCP leaves its socket, too. Network errors do not throw: they are
    /// counted, and the socket is connected again, at most once a second.
    Stream& Set(const std::string& name, const CollectorSettings& settings, const SendSettings& send = {});
    /// Sends what waits for the collector and removes it; does nothing if there is none.
    void Remove(const std::string& name);
    /// Null if there is none.
    [[nodiscard]] Stream* Find(const std::string& name);

    /// Sends all that waits: at the end of each batch of samples.
    void Flush() { m_shared.SendAll(); }

    /// Takes up what the network has reported of datagrams since they were sent, for the streams' status: one
    /// system call a collector. Without it, a report waits for the next datagram.
    void TakeErrors();

    /// Sends what waits and begins all streams' sequences anew, as those of this sub-agent: for a change of
    /// it or of the samples' encoding.
    void Restart(std::uint32_t subAgent);

    /// What datagrams carry now, but for sequence and samples.
    [[nodiscard]] wire::DatagramHeader Head() const;

    /// Empty, or what is missing, such as the permission to mark the datagrams.
    [[nodiscard]] const std::string& Limitation() const { return m_shared.limitation; }

private:
    StreamShared m_shared;  // the streams give their memory back to it
    std::unordered_map<std::string, CollectorStream> m_streams;
};

}  // namespace manager

#endif
