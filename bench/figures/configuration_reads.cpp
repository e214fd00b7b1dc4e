// SPDX-License-Identifier: Apache-2.0
// Reads the whole configuration as often as its argument says, with the reads that the daemon makes at
// its initial load and nothing else, and prints the median in milliseconds. A client of cdbd like the
// daemon: the framework hands it a read session. Used by the measurement of the initial load.

#include <confd_cdb.h>
#include <qxconfd/app_interface.h>
#include <qxconfd/config_handler.h>
#include <qxos/context.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "figures/measure.h"

namespace {

void Expect(bool done)
{
    if (done) return;
    std::fprintf(stderr, "a read failed: %s\n", confd_lasterr());
    std::exit(1);
}

// The whole list at the path, `width` values an entry; returns the number of entries.
std::size_t ReadList(int socket, std::vector<confd_value_t>& values, int width, const std::string& path)
{
    const int count = cdb_num_instances(socket, "%s", path.c_str());
    Expect(count >= 0);
    if (count == 0) return 0;
    values.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(width));
    Expect(cdb_get_objects(socket, values.data(), width, 0, count, "%s", path.c_str()) >= 1);
    return static_cast<std::size_t>(count);
}

void ReadEverything(int socket)
{
    const std::string sflow = "/config/oam/sflow";
    constexpr std::size_t kWidth = 5;
    confd_value_t agent{};
    if (cdb_get(socket, &agent, "%s/agent/ipv4", sflow.c_str()) == CONFD_OK) confd_free_value(&agent);
    std::vector<confd_value_t> collectors;
    const auto collectorCount = ReadList(socket, collectors, kWidth, sflow + "/collector");
    for (std::size_t i = 0; i < collectorCount; ++i) confd_free_value(&collectors[i * kWidth]);
    std::vector<confd_value_t> interfaces;
    const auto interfaceCount = ReadList(socket, interfaces, kWidth, sflow + "/interface");
    std::vector<confd_value_t> names;
    for (std::size_t i = 0; i < interfaceCount; ++i) {
        const std::string entry = sflow + "/interface{" +
                                  reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&interfaces[i * kWidth])) +
                                  "}";
        for (const char* list : {"/flow-sampling-collector", "/counter-sampling-collector"}) {
            const auto count = ReadList(socket, names, 1, entry + list);
            for (std::size_t c = 0; c < count; ++c) confd_free_value(&names[c]);
        }
        confd_free_value(&interfaces[i * kWidth]);
    }
}

class TimedReader : public qxconfd::ConfigHandler {
public:
    explicit TimedReader(std::size_t runs) : m_runs(runs) {}

    void LoadInitialConfig(int socket) override
    {
        std::vector<double> times;
        for (std::size_t run = 0; run < m_runs; ++run) {
            const figures::Stopwatch watch;
            ReadEverything(socket);
            times.push_back(watch.Milliseconds());
        }
        std::printf("%f\n", figures::Median(times));
    }
    void ApplyInitialConfig() override { std::raise(SIGTERM); }
    void StartCommit() override {}
    void ApplyCommitConfig() override {}

private:
    std::size_t m_runs;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: configuration_reads RUNS\n");
        return 1;
    }
    TimedReader reader(std::strtoul(argv[1], nullptr, 10));
    const qxmw_process_signature_t signature = {"configuration-reads"};
    qxos::the_context = new qxos::Context(&signature, {nullptr, nullptr, {nullptr, nullptr, nullptr}});
    auto* const qxmw = qxos::the_context->GetSharedQxmw();
    auto* const category = qxmw_trace_init(qxmw, signature.name);
    auto* const framework =
        new qxconfd::AppInterface(qxmw, category, signature.name, {&reader}, {}, {}, ELEM_CONFD_PHASE_2, 0);
    const int result = qxos::the_context->GetServer().Run();
    framework->Dispose();
    delete qxos::the_context;
    return result;
}
