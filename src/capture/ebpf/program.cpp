// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/program.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <thread>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "capture/ebpf/gap.h"
#include "capture/ebpf/libbpf_log.h"
#include "capture/sampler.skel.h"

namespace capture {
namespace {

constexpr std::size_t kDefaultRing = 4 << 20;
constexpr std::size_t kMaxRing = 1 << 30;

// On machines that read words at any address, the program copies packets by words.
#if defined(__x86_64__) || defined(__i386__) || defined(__aarch64__) || defined(__powerpc64__) || \
    defined(__s390x__)
constexpr std::uint32_t kCopyWords = 1;
#else
constexpr std::uint32_t kCopyWords = 0;
#endif

std::size_t RingBytes(std::size_t wanted)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (wanted == 0) wanted = kDefaultRing;
    return std::bit_ceil(std::clamp(wanted, page, kMaxRing));
}

// The kernel allocates a map's memory in the background: when ports come quickly, it is short for a moment.
// Tries again for some 10 ms.
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
    LogWhatLibbpfSays();
    const int cpus = libbpf_num_possible_cpus();
    if (cpus < 0) throw Refusal("the CPUs can't be counted", cpus);
    m_cpus = static_cast<std::size_t>(cpus);
    m_states.resize(m_cpus);
    m_counts.resize(m_cpus);

    m_skeleton.reset(sampler__open());
    if (m_skeleton == nullptr) throw Refusal("the sampling program can't be opened", errno);
    m_skeleton->rodata->ownMark = options.ownMark;
    auto& programs = m_skeleton->progs;
    m_ingress = heartbeat ? programs.sflow_ingress_while_alive : programs.sflow_ingress;
    m_egress = heartbeat ? programs.sflow_egress_while_alive : programs.sflow_egress;
    for (bpf_program* program : {programs.sflow_ingress, programs.sflow_egress,
                                 programs.sflow_ingress_while_alive, programs.sflow_egress_while_alive})
        bpf_program__set_autoload(program, program == m_ingress || program == m_egress);
    m_skeleton->rodata->wakeBytes = m_ringSize / 4;
    m_skeleton->rodata->checkBytes = m_ringSize / 32 / m_cpus;
    const auto table = MakeLogTable();
    static_assert(sizeof(table) == sizeof(m_skeleton->rodata->logTable));
    std::memcpy(const_cast<std::uint32_t*>(m_skeleton->rodata->logTable), table.data(), sizeof(table));
    m_skeleton->bss->shared.generation = 1;
    m_skeleton->bss->shared.wake.waiting = 1;
    m_skeleton->rodata->copyWords = kCopyWords;
    bpf_map__set_max_entries(m_skeleton->maps.ring, static_cast<std::uint32_t>(m_ringSize));
    bpf_map__set_max_entries(m_skeleton->maps.direct, static_cast<std::uint32_t>(m_cpus * kDirectPorts));
    if (const int error = sampler__load(m_skeleton.get()); error != 0)
        throw Refusal("the sampling program can't be loaded", error);
    m_direct = ReserveDirect();
}

EbpfProgram::~EbpfProgram() { ::munmap(m_direct, DirectBytes()); }

std::size_t EbpfProgram::DirectBytes() const { return m_cpus * kDirectPorts * sizeof(PortState); }

PortState* EbpfProgram::ReserveDirect() const
{
    void* memory =
        ::mmap(nullptr, DirectBytes(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw Refusal("there is no room to map the interfaces' counts", errno);
    return static_cast<PortState*>(memory);
}

void EbpfProgram::MapDirect(std::uint32_t key)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t first = PlaceOf(0, key) * sizeof(PortState) / page;
    if (!m_mapped.insert(first).second) return;
    for (std::size_t cpu = 0; cpu < m_cpus; ++cpu) {
        const std::size_t at = PlaceOf(cpu, key) * sizeof(PortState) / page * page;
        if (::mmap(reinterpret_cast<std::byte*>(m_direct) + at, page, PROT_READ | PROT_WRITE,
                   MAP_SHARED | MAP_FIXED, bpf_map__fd(m_skeleton->maps.direct),
                   static_cast<off_t>(at)) != MAP_FAILED)
            continue;
        const int error = errno;
        m_mapped.erase(first);
        throw Refusal("the interface's counts can't be mapped", error);
    }
}

int EbpfProgram::IngressFile() const { return bpf_program__fd(m_ingress); }

int EbpfProgram::EgressFile() const { return bpf_program__fd(m_egress); }

int EbpfProgram::RingFile() const { return bpf_map__fd(m_skeleton->maps.ring); }

volatile SharedWords& EbpfProgram::Shared() { return m_skeleton->bss->shared; }

void EbpfProgram::Create(std::uint32_t key)
{
    if (m_others.contains(key)) return;
    MapDirect(key);
    if (IsDirect(key)) return;
    if (DirectState(0, key).key == 0) return Place(key, key);
    std::fill(m_states.begin(), m_states.end(), PortState{});
    const int file = bpf_map__fd(m_skeleton->maps.ports);
    const int error = Patiently([&] { return bpf_map_update_elem(file, &key, m_states.data(), BPF_ANY); });
    if (error != 0) throw Refusal("the kernel has no room for the interface's counts", error);
    m_others.insert(key);
}

std::size_t EbpfProgram::PlaceOf(std::size_t cpu, std::uint32_t key)
{
    const auto egress = static_cast<std::uint32_t>(kEgressBit);
    return DirectPlace(static_cast<std::uint32_t>(cpu), key & ~egress, (key & egress) != 0);
}

PortState& EbpfProgram::DirectState(std::size_t cpu, std::uint32_t key)
{
    return m_direct[PlaceOf(cpu, key)];
}

void EbpfProgram::Place(std::uint32_t key, std::uint32_t owner)
{
    for (std::size_t cpu = 0; cpu < m_cpus; ++cpu) {
        PortState& state = DirectState(cpu, key);
        state = PortState{};
        __atomic_store_n(&state.key, owner, __ATOMIC_RELEASE);
    }
}

void EbpfProgram::Set(std::uint32_t key, const PortSettings& settings)
{
    const int file = bpf_map__fd(m_skeleton->maps.settings);
    const int error = Patiently([&] { return bpf_map_update_elem(file, &key, &settings, BPF_ANY); });
    if (error != 0) throw Refusal("the kernel has no room for the interface's settings", error);
    Renew(key);
}

void EbpfProgram::Stop(std::uint32_t key)
{
    bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.settings), &key);
    Renew(key);
}

void EbpfProgram::Renew(std::uint32_t key)
{
    if (IsDirect(key)) {
        for (std::size_t cpu = 0; cpu < m_cpus; ++cpu)
            __atomic_store_n(&DirectState(cpu, key).stale, 1U, __ATOMIC_SEQ_CST);
        return;
    }
    auto* word = &m_skeleton->bss->shared.generation;
    const std::uint32_t next = *word + 1;
    __atomic_store_n(word, next == 0 ? 1 : next, __ATOMIC_RELEASE);
}

void EbpfProgram::Erase(std::uint32_t key)
{
    bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.settings), &key);
    if (m_others.erase(key) != 0)
        bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.ports), &key);
    else if (IsDirect(key))
        Place(key, 0);
}

bool EbpfProgram::IsDirect(std::uint32_t key) { return DirectState(0, key).key == key; }

std::span<const Counts> EbpfProgram::ReadCpus(std::uint32_t key, std::uint32_t incarnation)
{
    std::fill(m_counts.begin(), m_counts.end(), Counts{});
    const bool direct = IsDirect(key);
    if (!direct && bpf_map_lookup_elem(bpf_map__fd(m_skeleton->maps.ports), &key, m_states.data()) != 0)
        return m_counts;
    for (std::size_t cpu = 0; cpu < m_cpus; ++cpu) {
        const auto& state = direct ? DirectState(cpu, key) : m_states[cpu];
        // The program sets the counts to zero before it takes another incarnation.
        if (__atomic_load_n(&state.settings.incarnation, __ATOMIC_ACQUIRE) != incarnation) continue;
        // What is read after it, such as the end of the ring, is not older.
        m_counts[cpu] = {.pool = __atomic_load_n(&state.pool, __ATOMIC_ACQUIRE),
                         .drops = __atomic_load_n(&state.drops, __ATOMIC_RELAXED)};
    }
    return m_counts;
}

Counts EbpfProgram::Read(std::uint32_t key, std::uint32_t incarnation)
{
    Counts sum;
    for (const Counts& counts : ReadCpus(key, incarnation)) {
        sum.pool += counts.pool;
        sum.drops += counts.drops;
    }
    return sum;
}

}  // namespace capture
