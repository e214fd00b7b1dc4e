// Loading the sampling program, and its maps.

#include "capture/ebpf_program.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fmt/format.h>
#include <unistd.h>

#include "capture/ebpf_gap.h"
#include "capture/sampler.skel.h"
#include "log/log.h"

namespace capture {
namespace {

constexpr std::size_t kDefaultRing = 4 << 20;
constexpr std::size_t kMostRing = 1 << 30;
constexpr std::uint32_t kBatch = 256;  // ports read by one call

int Log(libbpf_print_level, const char* format, va_list arguments)
{
    if (!slog::Enabled(static_cast<int>(slog::Level::kDebug))) return 0;
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    std::string_view line = text.data();
    while (line.ends_with('\n')) line.remove_suffix(1);
    slog::Debug("{}", line);
    return 0;
}

std::size_t RingBytes(std::size_t wanted)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (wanted == 0) wanted = kDefaultRing;
    return std::bit_ceil(std::clamp(wanted, page, kMostRing));
}

// A map's memory is made in the background while ports come quickly: soon there is more.
template <typename Call>
int Patiently(const Call& call)
{
    for (int attempt = 0;; ++attempt) {
        const int result = call();
        if (result != -ENOMEM || attempt == 50) return result;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

}  // namespace

Unavailable Refusal(const char* what, int error)
{
    if (error < 0) error = -error;
    const auto text = [&](const char* hint) {
        return fmt::format("{}: {}{}", what, std::strerror(error), hint);
    };
    switch (error) {
    case EPERM:
    case EACCES:
        return {Unavailable::Cause::kPermission,
                text("; needs CAP_BPF, CAP_NET_ADMIN and CAP_PERFMON in the namespace of the system")};
    case ENOSYS:
    case EINVAL:
    case EOPNOTSUPP:
        return {Unavailable::Cause::kKernel, text("; the kernel's eBPF lacks what sampling needs")};
    default:
        return {Unavailable::Cause::kOther, text("")};
    }
}

void EbpfProgram::Close::operator()(sampler* skeleton) const { sampler__destroy(skeleton); }

EbpfProgram::EbpfProgram(const SourceOptions& options, bool heartbeat)
    : m_ringSize(RingBytes(options.bufferSize))
{
    libbpf_set_print(Log);
    const int cpus = libbpf_num_possible_cpus();
    if (cpus < 0) throw Refusal("the CPUs can't be counted", cpus);
    m_cpus = static_cast<std::size_t>(cpus);
    m_states.resize(m_cpus * sizeof(PortState));

    m_skeleton.reset(sampler__open());
    if (m_skeleton == nullptr) throw Refusal("the sampling program can't be opened", errno);
    m_skeleton->rodata->ownMark = options.ownMark;
    m_skeleton->rodata->useHeartbeat = heartbeat ? 1 : 0;
    m_skeleton->rodata->wakeBytes = m_ringSize / 4;
    m_skeleton->rodata->checkBytes = m_ringSize / 32 / m_cpus;
    const auto table = MakeLogTable();
    static_assert(sizeof(table) == sizeof(m_skeleton->rodata->logTable));
    std::memcpy(const_cast<std::uint32_t*>(m_skeleton->rodata->logTable), table.data(), sizeof(table));
    m_skeleton->bss->shared.generation = 1;
    m_skeleton->bss->shared.waiting = 1;
    bpf_map__set_max_entries(m_skeleton->maps.ring, static_cast<std::uint32_t>(m_ringSize));
    if (const int error = sampler__load(m_skeleton.get()); error != 0)
        throw Refusal("the sampling program can't be loaded", error);
}

EbpfProgram::~EbpfProgram() = default;

int EbpfProgram::IngressFile() const { return bpf_program__fd(m_skeleton->progs.sflow_ingress); }

int EbpfProgram::EgressFile() const { return bpf_program__fd(m_skeleton->progs.sflow_egress); }

int EbpfProgram::RingFile() const { return bpf_map__fd(m_skeleton->maps.ring); }

volatile SharedWords& EbpfProgram::Shared() { return m_skeleton->bss->shared; }

void EbpfProgram::Create(std::uint32_t key)
{
    const std::vector<std::byte> zero(m_states.size());
    const int file = bpf_map__fd(m_skeleton->maps.ports);
    const int error = Patiently([&] { return bpf_map_update_elem(file, &key, zero.data(), BPF_ANY); });
    if (error != 0) throw Refusal("the kernel has no room for the interface's counts", error);
}

void EbpfProgram::Set(std::uint32_t key, const PortSettings& settings)
{
    const int file = bpf_map__fd(m_skeleton->maps.settings);
    const int error = Patiently([&] { return bpf_map_update_elem(file, &key, &settings, BPF_ANY); });
    if (error != 0) throw Refusal("the kernel has no room for the interface's settings", error);
}

void EbpfProgram::NextGeneration()
{
    auto* word = &m_skeleton->bss->shared.generation;
    const std::uint32_t next = *word + 1;
    __atomic_store_n(word, next == 0 ? 1 : next, __ATOMIC_RELEASE);
}

void EbpfProgram::Erase(std::uint32_t key)
{
    bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.settings), &key);
    bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.ports), &key);
}

Counts EbpfProgram::Read(std::uint32_t key)
{
    if (bpf_map_lookup_elem(bpf_map__fd(m_skeleton->maps.ports), &key, m_states.data()) != 0) return {};
    return Sum(m_states.data());
}

void EbpfProgram::ReadAll(const std::function<void(std::uint32_t key, const Counts&)>& take)
{
    const int file = bpf_map__fd(m_skeleton->maps.ports);
    std::vector<std::uint32_t> keys(kBatch);
    std::vector<std::byte> states(kBatch * m_states.size());
    std::uint32_t place = 0;
    for (bool first = true;; first = false) {
        std::uint32_t count = kBatch;
        const int result = bpf_map_lookup_batch(file, first ? nullptr : &place, &place, keys.data(),
                                                states.data(), &count, nullptr);
        if (result != 0 && result != -ENOENT) return slog::Error("counts: {}", std::strerror(-result));
        for (std::uint32_t i = 0; i < count; ++i) take(keys[i], Sum(&states[i * m_states.size()]));
        if (result != 0) return;
    }
}

Counts EbpfProgram::Sum(const std::byte* states) const
{
    Counts sum;
    for (std::size_t cpu = 0; cpu < m_cpus; ++cpu) {
        PortState state;
        std::memcpy(&state, states + cpu * sizeof(state), sizeof(state));
        sum.pool += state.pool;
        sum.drops += state.drops;
    }
    return sum;
}

}  // namespace capture
