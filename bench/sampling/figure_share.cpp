// SPDX-License-Identifier: Apache-2.0
// Figure 5: what the manager has of a machine that many others want: each packet of many interfaces sampled,
// and a sender of its own at each, which sends as much as it can. Everybody's share as usual, and the manager
// with the share that its unit gives it.

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sampling/collector.h"
#include "sampling/figures.h"
#include "sampling/measured_manager.h"
#include "support/traffic.h"

namespace sampling {
namespace {

constexpr std::size_t kPorts = 64;
constexpr std::chrono::seconds kTime{5};
constexpr unsigned kUsual = 1024;        // cpu.shares that stand for the weight 100
constexpr unsigned kOfTheUnit = 10'240;  // and for 1000

std::string Port(std::size_t number) { return "port" + std::to_string(number); }

// A control group (version 1) with a share of the CPUs.
class CpuGroup {
public:
    CpuGroup(const std::string& name, unsigned shares) : m_path("/sys/fs/cgroup/cpu/sampling-figures-" + name)
    {
        std::filesystem::create_directory(m_path);
        Write("cpu.shares", shares);
    }
    CpuGroup(const CpuGroup&) = delete;
    CpuGroup& operator=(const CpuGroup&) = delete;
    ~CpuGroup()
    {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);  // empty: its processes have ended
    }
    void Take(pid_t process) { Write("cgroup.procs", process); }

private:
    template <typename Number>
    void Write(const char* file, Number number)
    {
        std::ofstream(m_path / file) << number;
    }
    std::filesystem::path m_path;
};

// A process that sends into a port until it is killed.
class Sender {
public:
    Sender(std::size_t number, const std::string& device) : m_group(std::to_string(number), kUsual)
    {
        m_process = ::fork();
        if (m_process < 0) throw std::runtime_error("no further process");
        if (m_process == 0) Send(device);
        m_group.Take(m_process);
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    ~Sender()
    {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
    void Begin() const { ::kill(m_process, SIGCONT); }

private:
    [[noreturn]] static void Send(const std::string& device)
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        cpu_set_t any;
        CPU_ZERO(&any);
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) CPU_SET(cpu, &any);
        ::sched_setaffinity(0, sizeof any, &any);  // on the manager's core, too
        ::raise(SIGSTOP);
        try {
            support::Traffic traffic(device, support::UdpFlows(16, {.from = 1, .to = 2, .size = 200}));
            traffic.SendFor(std::chrono::hours(1));
        } catch (...) {
        }
        ::_exit(1);
    }

    CpuGroup m_group;
    pid_t m_process;
};

void MeasureWith(unsigned shares, const std::string& name, figures::Table& table)
{
    std::vector<std::unique_ptr<Sender>> senders;
    for (std::size_t i = 0; i < kPorts; ++i) senders.push_back(std::make_unique<Sender>(i, "far-" + Port(i)));
    CpuGroup group("manager", shares), others("collector", kOfTheUnit);
    others.Take(::getpid());
    Collector collector;
    MeasuredManager manager(Capture::kEbpf, collector.Port());
    group.Take(manager.Pid());
    for (std::size_t i = 0; i < kPorts; ++i) manager.Set(Port(i), {.rate = 1});
    for (std::size_t i = 0; i < kPorts; ++i) manager.AwaitSampled(Port(i));
    for (const auto& sender : senders) sender->Begin();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double cpu = manager.CpuSeconds();
    const Received before = collector.Read();
    std::this_thread::sleep_for(kTime);
    const Received after = collector.Read();
    table.Plain("5 time of the manager in 5 s, " + name, manager.CpuSeconds() - cpu, "s");
    table.Plain("5 samples received in 5 s, " + name,
                static_cast<double>(after.flowSamples - before.flowSamples), "");
    table.Plain("5 samples that found no room, " + name, static_cast<double>(after.drops - before.drops), "");
    senders.clear();
    // What is left is the collector's own; nothing of it needs a group any more.
    std::ofstream("/sys/fs/cgroup/cpu/cgroup.procs") << ::getpid();
}

}  // namespace

void MeasureShare(const Settings&, ForwardingPath&, figures::Table& table)
{
    if (!std::filesystem::exists("/sys/fs/cgroup/cpu/cgroup.procs"))
        return table.Failed("5 its share of a busy machine", "there is no /sys/fs/cgroup/cpu");
    for (std::size_t i = 0; i < kPorts; ++i) support::Network::Veth(Port(i), "far-" + Port(i));
    MeasureWith(kUsual, "weight 100", table);
    MeasureWith(kOfTheUnit, "weight 1000", table);
    for (std::size_t i = 0; i < kPorts; ++i) support::Network::Ip("link delete " + Port(i));
}

}  // namespace sampling
