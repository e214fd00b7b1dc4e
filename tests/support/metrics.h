// SPDX-License-Identifier: Apache-2.0
// Reads the numbers that sflow-mgr serves at --metrics, for tests that compare them with what they have
// counted themselves.

#ifndef TESTS_SUPPORT_METRICS_H
#define TESTS_SUPPORT_METRICS_H

#include <cstdint>
#include <map>
#include <string>

namespace support {

class Metrics {
public:
    /// Asks 127.0.0.1 at the port. Throws std::runtime_error where there is no whole answer within 10 s.
    static Metrics Fetch(std::uint16_t port);
    /// Of the text alone. Throws std::runtime_error for a line that is none of the format.
    explicit Metrics(const std::string& text);

    /// The value of a line such as `sflow_interface_samples_total{interface="p1"}`. Throws std::out_of_range,
    /// which names it, where there is none.
    [[nodiscard]] double Exact(const std::string& line) const;
    [[nodiscard]] std::uint64_t At(const std::string& line) const;
    [[nodiscard]] bool Has(const std::string& line) const { return m_values.contains(line); }

    /// "sflow_interface_" and so on around the two names.
    [[nodiscard]] std::uint64_t OfInterface(const std::string& name, const std::string& what) const;
    [[nodiscard]] std::uint64_t OfCollector(const std::string& name, const std::string& what) const;

    /// Whether packets should be sampled at a kernel interface that is there and are not, as far as the
    /// numbers tell: not whether it has a collector.
    [[nodiscard]] bool AnyUnsampled() const;

    /// Where packets are sampled, "none" where nothing samples.
    [[nodiscard]] std::string Source() const;

private:
    std::map<std::string, double> m_values;
};

}  // namespace support

#endif
