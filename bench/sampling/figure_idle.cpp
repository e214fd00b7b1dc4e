// SPDX-License-Identifier: Apache-2.0
// Figure 3: many interfaces that are configured and carry nothing: memory, time, and how long it takes to
// configure them.

#include <stdexcept>
#include <string>

#include "figures/measure.h"
#include "figures/process_usage.h"
#include "sampling/collector.h"
#include "sampling/figures.h"
#include "sampling/measured_manager.h"

namespace sampling {
namespace {

constexpr std::uint32_t kRate = 1000;
constexpr std::uint16_t kSlow = 10, kFast = 1;  // seconds between two counter samples

std::string Idle(std::size_t number) { return "idle" + std::to_string(number); }

// Interfaces come in pairs; the same ones serve every measurement.
class IdleInterfaces {
public:
    explicit IdleInterfaces(std::size_t count)
    {
        std::string lines;
        for (; m_count < count; m_count += 2)
            lines += "link add " + Idle(m_count) + " group " + std::to_string(kGroup) +
                     " type veth peer name " + Idle(m_count + 1) + "\n" + "link set " + Idle(m_count) +
                     " up\nlink set " + Idle(m_count + 1) + " up\n";
        support::Network::Ip(lines);
    }
    IdleInterfaces(const IdleInterfaces&) = delete;
    IdleInterfaces& operator=(const IdleInterfaces&) = delete;
    ~IdleInterfaces()
    {
        support::Network::Ip("link del group " + std::to_string(kGroup));  // one by one takes a minute
    }

private:
    static constexpr int kGroup = 7;  // of interfaces, for nothing but their removal
    std::size_t m_count = 0;
};

// Returns when all are sampled.
void Configure(MeasuredManager& manager, std::size_t count, std::uint16_t interval)
{
    for (std::size_t i = 0; i < count; ++i) manager.Set(Idle(i), {.rate = kRate, .interval = interval});
    for (std::size_t i = count; i-- > 0;) manager.AwaitSampled(Idle(i));
}

struct Spent {
    double cpuMilliseconds = 0;  // a second
    double counterSamples = 0;   // a second
};

Spent Watch(const MeasuredManager& manager, const Collector& collector, std::chrono::milliseconds time)
{
    const double cpu = manager.CpuSeconds();
    const auto samples = collector.Read().counterSamples;
    const figures::Stopwatch watch;
    std::this_thread::sleep_for(time);
    const double seconds = watch.Milliseconds() / 1e3;
    return {(manager.CpuSeconds() - cpu) * 1e3 / seconds,
            static_cast<double>(collector.Read().counterSamples - samples) / seconds};
}

void MeasureOne(figures::Table& table)
{
    const IdleInterfaces interfaces(2);
    Collector collector;
    MeasuredManager manager(Capture::kEbpf, collector.Port());
    Configure(manager, 1, kSlow);
    table.AtMost("3 resident sflow-mgr, one interface", figures::ResidentMegabytes(manager.Pid()), 8, "MB");
}

void MeasureFew(const Settings& settings, figures::Table& table)
{
    const auto size = std::to_string(settings.few) + " interfaces";
    const IdleInterfaces interfaces(settings.few);
    Collector collector;
    MeasuredManager manager(Capture::kEbpf, collector.Port());
    Configure(manager, settings.few, kSlow);
    Watch(manager, collector,
          std::chrono::seconds(kSlow));  // the first time asks the drivers what they count
    std::vector<double> times;
    // Whole intervals, so that each has all the interfaces once.
    for (std::size_t run = 0; run < (settings.runs + 1) / 2; ++run)
        times.push_back(Watch(manager, collector, std::chrono::seconds(kSlow)).cpuMilliseconds);
    table.AtMost("3 resident sflow-mgr, " + size, figures::ResidentMegabytes(manager.Pid()), 15, "MB");
    table.AtMost("3 its time a second, polling every 10 s, " + size, figures::Median(times), 0.5, "ms");
}

// What polling adds, to the second, beside the same interfaces without it.
void MeasureCounterSample(const Settings& settings, std::size_t count, figures::Table& table)
{
    const auto size = std::to_string(count) + " interfaces";
    const IdleInterfaces interfaces(count);
    Collector collector;
    MeasuredManager manager(Capture::kEbpf, collector.Port());
    Configure(manager, count, 0);
    const double without = Watch(manager, collector, settings.run * 2).cpuMilliseconds;
    Configure(manager, count, kFast);
    Watch(manager, collector, std::chrono::seconds(2 * kFast));  // all have had their first
    std::vector<double> times;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        const auto spent = Watch(manager, collector, settings.run * 2);
        if (spent.counterSamples < static_cast<double>(count) * 0.9)
            throw std::runtime_error("only " + std::to_string(spent.counterSamples) + " a second came");
        times.push_back((spent.cpuMilliseconds - without) * 1e3 / spent.counterSamples);
    }
    table.AtMost("3 a counter sample, polling every second, " + size, figures::Median(times), 2, "us");
}

void MeasureMany(const Settings& settings, figures::Table& table)
{
    const auto size = std::to_string(settings.many) + " interfaces";
    const IdleInterfaces interfaces(settings.many);
    std::vector<double> times, sizes;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        Collector collector;
        MeasuredManager manager(Capture::kEbpf, collector.Port());
        const figures::Stopwatch watch;
        Configure(manager, settings.many, kSlow);
        times.push_back(watch.Milliseconds() / 1e3);
        sizes.push_back(figures::ResidentMegabytes(manager.Pid()));
    }
    table.AtMost("3 configured, " + size, figures::Median(times), 2, "s");
    table.AtMost("3 resident sflow-mgr, " + size, figures::Median(sizes), 40, "MB");
}

}  // namespace

void MeasureIdle(const Settings& settings, ForwardingPath&, figures::Table& table)
{
    MeasureOne(table);
    MeasureFew(settings, table);
    MeasureCounterSample(settings, settings.few, table);
    MeasureMany(settings, table);
}

}  // namespace sampling
