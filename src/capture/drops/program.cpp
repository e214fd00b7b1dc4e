// SPDX-License-Identifier: Apache-2.0
#include "capture/drops/program.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fmt/format.h>
#include <unistd.h>

#include "capture/drops.skel.h"
#include "capture/drops/each_entry.h"

namespace capture {
namespace {

constexpr std::size_t kDefaultDropRing = 1 << 20;
constexpr std::size_t kMaxDropRing = 1 << 30;
// Functions whose names are kept: far more than drop packets in any kernel.
constexpr std::size_t kMostFunctions = 4096;

static_assert(kMaxDropLimit < kLimitSlots);
static_assert(kMaxDroppedHeader == kMaxDropHeader);
static_assert(static_cast<int>(HeaderStart::kIpv6) == kStartIpv6);

Unavailable CantSee(const char* what, int error)
{
    if (error < 0) error = -error;
    const std::string text = fmt::format("{}: {}", what, std::strerror(error));
    switch (error) {
    case EPERM:
    case EACCES:
        return {Unavailable::Cause::kPermission,
                text + "; needs CAP_BPF and CAP_PERFMON in the namespace of the system"};
    case ENOSYS:
    case EINVAL:
    case EOPNOTSUPP:
    case ENOENT:
    case ESRCH:
        return {Unavailable::Cause::kKernel, text + "; the kernel's eBPF lacks what this needs"};
    default:
        return {Unavailable::Cause::kOther, text};
    }
}

std::size_t DropRingBytes(std::size_t wanted)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (wanted == 0) wanted = kDefaultDropRing;
    return std::bit_ceil(std::clamp(wanted, page, kMaxDropRing));
}

int RunOnce(const bpf_program* program)
{
    bpf_test_run_opts options{};
    options.sz = sizeof options;
    return bpf_prog_test_run_opts(bpf_program__fd(program), &options);
}

}  // namespace

void DropProgram::Close::operator()(drops* skeleton) const { drops__destroy(skeleton); }

void DropProgram::Detach::operator()(bpf_link* link) const { bpf_link__destroy(link); }

DropProgram::DropProgram(const DropOptions& options, const DropReasons& reasons)
    : m_reasons(reasons), m_ringSize(DropRingBytes(options.bufferSize))
{
    const int cpus = libbpf_num_possible_cpus();
    if (cpus < 0) throw CantSee("the CPUs can't be counted", cpus);
    m_cpus = static_cast<std::size_t>(cpus);
    m_interface.resize(m_cpus);
    m_reason.resize(m_cpus);
    m_skeleton.reset(drops__open());
    if (m_skeleton == nullptr) throw CantSee("the program that sees drops can't be opened", errno);
    Prepare(options);
    if (const int error = drops__load(m_skeleton.get()); error != 0)
        throw CantSee("the program that sees drops can't be loaded", error);
    Start();
}

DropProgram::~DropProgram() = default;

void DropProgram::Prepare(const DropOptions& options)
{
    auto& constants = *m_skeleton->rodata;
    constants.ownMark = options.ownMark;
    constants.hasSocket = m_reasons.HasSocket() ? 1 : 0;
    constants.wakeBytes = m_ringSize / 4;
    for (const auto& [reason, name] : m_reasons.All())
        if (reason < kKnownReasons) const_cast<std::uint8_t&>(constants.meanings[reason]) = MeaningOf(name);
    auto& variables = *m_skeleton->bss;
    variables.words.wake.waiting = 1;
    variables.words.generation = 1;
    for (std::uint64_t number = 0; number < kLimitSlots; ++number) variables.times[number] = number << 48;
    variables.nextNumber = kLimitSlots;
    bpf_map__set_max_entries(m_skeleton->maps.ring, static_cast<std::uint32_t>(m_ringSize));
    bpf_map__set_max_entries(m_skeleton->maps.interfaces, std::max(options.maxInterfaces, 1U));
    bpf_map__set_max_entries(m_skeleton->maps.reasons, std::max(options.maxReasons, 1U));
}

void DropProgram::Start()
{
    if (const int error = RunOnce(m_skeleton->progs.sflow_namespace); error != 0)
        throw CantSee("the network namespace can't be found by the program that sees drops", error);
    m_link.reset(bpf_program__attach(m_skeleton->progs.sflow_drop));
    if (m_link == nullptr) throw CantSee("the program that sees drops can't be attached to kfree_skb", errno);
}

int DropProgram::RingFile() const { return bpf_map__fd(m_skeleton->maps.ring); }

volatile WakeWords& DropProgram::Wake() { return m_skeleton->bss->words.wake; }

void DropProgram::Renew()
{
    auto* word = &m_skeleton->bss->words.generation;
    const std::uint32_t next = *word + 1;
    __atomic_store_n(word, next == 0 ? 1 : next, __ATOMIC_RELEASE);
}

void DropProgram::Change(const DropSettings& settings)
{
    auto& words = m_skeleton->bss->words;
    __atomic_store_n(&words.limit, std::min(settings.limit, kMaxDropLimit), __ATOMIC_RELAXED);
    __atomic_store_n(
        &words.wanted,
        static_cast<std::uint32_t>(std::min<std::size_t>(settings.headerSize, kMaxDroppedHeader)),
        __ATOMIC_RELAXED);
    const std::uint32_t all = settings.everyInterface ? 1 : 0;
    if (words.all == all) return;
    __atomic_store_n(&words.all, all, __ATOMIC_RELAXED);
    Renew();
}

void DropProgram::Add(std::uint32_t ifIndex)
{
    const std::uint32_t one = 1;
    const int error = bpf_map_update_elem(bpf_map__fd(m_skeleton->maps.configured), &ifIndex, &one, BPF_ANY);
    if (error != 0)
        throw CantSee("the kernel has no room for the interface among those whose drops are told", error);
}

void DropProgram::Remove(std::uint32_t ifIndex)
{
    if (bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.configured), &ifIndex) == 0) Renew();
    const auto last = Read(ifIndex);
    if (!last) return;
    bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.interfaces), &ifIndex);
    for (const ReasonCount& count : last->reasons) {
        const DropReasonKey key{.ifIndex = ifIndex, .reason = count.reason};
        bpf_map_delete_elem(bpf_map__fd(m_skeleton->maps.reasons), &key);
    }
}

InterfaceDrops DropProgram::SumOf(std::uint32_t ifIndex, const DropInterface* cpus) const
{
    InterfaceDrops sum{.ifIndex = ifIndex, .counts = {}, .reasons = {}, .nameless = 0};
    for (std::size_t cpu = 0; cpu < m_cpus; ++cpu) {
        sum.counts.drops += cpus[cpu].drops;
        sum.counts.untold += cpus[cpu].untold;
        sum.counts.own += cpus[cpu].own;
        sum.nameless += cpus[cpu].nameless;
    }
    return sum;
}

std::optional<DropCounts> DropProgram::ReadCounts(std::uint32_t ifIndex)
{
    if (bpf_map_lookup_elem(bpf_map__fd(m_skeleton->maps.interfaces), &ifIndex, m_interface.data()) != 0)
        return {};
    return SumOf(ifIndex, m_interface.data()).counts;
}

ReasonCount DropProgram::SumOfReason(std::uint32_t reason, const DropReasonCount* cpus) const
{
    ReasonCount sum{.reason = reason, .drops = 0, .last = 0};
    for (std::size_t cpu = 0; cpu < m_cpus; ++cpu) {
        sum.drops += cpus[cpu].drops;
        sum.last = std::max<std::uint64_t>(sum.last, cpus[cpu].last);
    }
    return sum;
}

std::optional<ReasonCount> DropProgram::ReadReason(const DropReasonKey& key)
{
    if (bpf_map_lookup_elem(bpf_map__fd(m_skeleton->maps.reasons), &key, m_reason.data()) != 0) return {};
    return SumOfReason(key.reason, m_reason.data());
}

std::optional<InterfaceDrops> DropProgram::Read(std::uint32_t ifIndex)
{
    if (bpf_map_lookup_elem(bpf_map__fd(m_skeleton->maps.interfaces), &ifIndex, m_interface.data()) != 0)
        return {};
    InterfaceDrops drops = SumOf(ifIndex, m_interface.data());
    std::uint64_t named = 0;
    for (const auto& [reason, name] : m_reasons.All())
        if (const auto count = ReadReason({.ifIndex = ifIndex, .reason = reason})) {
            drops.reasons.push_back(*count);
            named += count->drops;
        }
    if (named + drops.nameless >= drops.counts.drops) return drops;
    // Reasons of a module that had no name when they were met.
    drops.reasons.clear();
    ForEachEntry<DropReasonKey, DropReasonCount>(
        bpf_map__fd(m_skeleton->maps.reasons), m_cpus,
        [&](const DropReasonKey& key, const DropReasonCount* cpus) {
            if (key.ifIndex == ifIndex) drops.reasons.push_back(SumOfReason(key.reason, cpus));
        });
    std::ranges::sort(drops.reasons, {}, &ReasonCount::reason);
    return drops;
}

std::vector<InterfaceDrops> DropProgram::ReadAll()
{
    std::map<std::uint32_t, InterfaceDrops> found;
    ForEachEntry<std::uint32_t, DropInterface>(bpf_map__fd(m_skeleton->maps.interfaces), m_cpus,
                                               [&](std::uint32_t ifIndex, const DropInterface* cpus) {
                                                   found.emplace(ifIndex, SumOf(ifIndex, cpus));
                                               });
    ForEachEntry<DropReasonKey, DropReasonCount>(
        bpf_map__fd(m_skeleton->maps.reasons), m_cpus,
        [&](const DropReasonKey& key, const DropReasonCount* cpus) {
            const auto at = found.find(key.ifIndex);
            if (at != found.end()) at->second.reasons.push_back(SumOfReason(key.reason, cpus));
        });
    std::vector<InterfaceDrops> all;
    all.reserve(found.size());
    for (auto& [ifIndex, drops] : found) {
        std::ranges::sort(drops.reasons, {}, &ReasonCount::reason);
        all.push_back(std::move(drops));
    }
    return all;
}

UncountedDrops DropProgram::ReadUncounted() const
{
    const auto& words = m_skeleton->bss->words;
    bpf_prog_info info{};
    std::uint32_t size = sizeof(info);
    if (bpf_obj_get_info_by_fd(bpf_program__fd(m_skeleton->progs.sflow_drop), &info, &size) != 0) info = {};
    return {.beyond = __atomic_load_n(&words.beyond, __ATOMIC_RELAXED),
            .beyondUntold = __atomic_load_n(&words.beyondUntold, __ATOMIC_RELAXED),
            .missed = info.recursion_misses};
}

std::string_view DropProgram::FunctionAt(std::uint64_t location)
{
    const auto known = m_functions.find(location);
    if (known != m_functions.end()) return known->second;
    if (m_functions.size() >= kMostFunctions) m_functions.clear();
    return m_functions.emplace(location, AskForFunction(location)).first->second;
}

std::string DropProgram::AskForFunction(std::uint64_t location)
{
    // The call stands before the place where it returns to, which may be another function's already.
    auto& symbol = m_skeleton->bss->symbol;
    symbol.location = location - 1;
    symbol.text[0] = '\0';
    if (location == 0 || RunOnce(m_skeleton->progs.sflow_symbol) != 0) return {};
    std::string name(symbol.text, ::strnlen(symbol.text, sizeof symbol.text));
    // "name.isra.0 [module]"; a number where the kernel knows no function.
    name.resize(std::min(name.find_first_of(". ["), name.size()));
    if (name.starts_with("0x")) name.clear();
    return name;
}

}  // namespace capture
