// SPDX-License-Identifier: Apache-2.0
// A collector for tests of the export: a UDP socket that takes every datagram, and a reader of what the
// exporter itself writes into it. It knows the samples of this suite only: a type, a length, a number and a
// pattern.

#ifndef TESTS_UNIT_MANAGER_EXPORT_COLLECTOR_H
#define TESTS_UNIT_MANAGER_EXPORT_COLLECTOR_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "manager/export/exporter.h"

namespace exporter_test {

using Bytes = std::vector<std::byte>;

struct Numbered {
    std::uint32_t number = 0;
    manager::Stream::Sample kind = manager::Stream::Sample::kFlow;
    friend bool operator==(const Numbered&, const Numbered&) = default;
};

/// `size` bytes, a multiple of four and at least 12.
Bytes MakeSample(const Numbered& numbered, std::size_t size);

/// What the kernel says of a datagram.
struct Origin {
    std::string address;
    std::uint16_t port = 0;
    std::uint8_t tos = 0;  // the whole octet
};

struct Received {
    std::size_t size = 0;
    std::string agent;
    std::uint32_t subAgent = 0, sequence = 0, uptime = 0;
    std::vector<Numbered> samples;
    Origin origin;
};

/// IPv4 text as the settings want it.
std::uint32_t Address(const std::string& text);
manager::CollectorSettings Settings(const std::string& address, std::uint16_t port, std::uint16_t size);

/// The socket: datagrams as they come.
class RawCollector {
public:
    enum class Merge : std::uint8_t { kOff, kOn };  // UDP_GRO

    RawCollector(const std::string& address, std::uint16_t port, Merge merge = Merge::kOff);
    RawCollector(const RawCollector&) = delete;
    RawCollector& operator=(const RawCollector&) = delete;
    ~RawCollector();

    /// What one receive gives: more than one datagram where they came merged, none where nothing came in
    /// that time.
    std::vector<Bytes> Read(int waitMs);
    /// Of what Read gave last.
    [[nodiscard]] const Origin& Last() const { return m_last; }

private:
    int m_socket = -1;
    Origin m_last;
};

class Collector {
public:
    using Merge = RawCollector::Merge;

    Collector(const std::string& address, std::uint16_t port, Merge merge = Merge::kOff)
        : m_socket(address, port, merge)
    {
    }

    /// Waits until there are that many datagrams, or for five seconds without one. Throws where a datagram is
    /// not exactly what the exporter should write.
    std::vector<Received> Take(std::size_t datagrams);
    /// What is there now.
    std::vector<Received> TakeAll();

private:
    bool Read(int waitMs);
    RawCollector m_socket;
    std::vector<Received> m_received;
};

/// Of all datagrams, in their order.
std::vector<Numbered> Samples(const std::vector<Received>& received);
std::vector<std::uint32_t> Sequences(const std::vector<Received>& received);

}  // namespace exporter_test

#endif
