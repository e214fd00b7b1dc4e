// SPDX-License-Identifier: Apache-2.0
// Hears the frames that leave by an interface's far end, and tells those of the test by the number that they
// carry: where the kernel has sent a frame, as the far ends know it.

#ifndef SAMPLES_SNIFFER_H
#define SAMPLES_SNIFFER_H

#include <cstdint>
#include <set>
#include <string>

namespace samples_tests {

class Sniffer {
public:
    /// In the namespace of the calling thread. Throws std::system_error.
    explicit Sniffer(const std::string& device);
    Sniffer(const Sniffer&) = delete;
    Sniffer& operator=(const Sniffer&) = delete;
    ~Sniffer();

    /// Whether a frame of support::UdpFrame with this number has come by now.
    [[nodiscard]] bool Heard(std::uint64_t number);

private:
    int m_socket;
    std::set<std::uint64_t> m_numbers;
};

}  // namespace samples_tests

#endif
