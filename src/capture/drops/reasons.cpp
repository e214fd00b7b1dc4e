// SPDX-License-Identifier: Apache-2.0
#include "capture/drops/reasons.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include <bpf/btf.h>
#include <fmt/format.h>

#include "capture/ebpf/libbpf_log.h"
#include "capture/unavailable.h"

namespace capture {
namespace {

constexpr std::uint32_t kSubsystemShift = 16;
constexpr std::string_view kPrefix = "SKB_DROP_REASON_";
constexpr std::string_view kSubsystemPrefix = "SKB_DROP_REASON_SUBSYS_";

struct FreeTypes {
    void operator()(btf* types) const { btf__free(types); }
};
using Types = std::unique_ptr<btf, FreeTypes>;

std::string_view WithoutPrefix(std::string_view name, std::string_view prefix)
{
    return name.starts_with(prefix) ? name.substr(prefix.size()) : name;
}

std::string_view NameAt(const btf* types, std::uint32_t offset)
{
    const char* name = btf__name_by_offset(types, offset);
    return name == nullptr ? std::string_view() : name;
}

// Calls back with each name and number of an enumeration.
template <typename Function>
void ForEachValue(const btf* types, const btf_type* type, Function function)
{
    if (type == nullptr || !btf_is_enum(type)) return;
    const struct btf_enum* values = btf_enum(type);
    for (std::uint32_t i = 0; i < btf_vlen(type); ++i)
        function(NameAt(types, values[i].name_off), static_cast<std::uint32_t>(values[i].val));
}

const btf_type* FindEnumeration(const btf* types, const char* name)
{
    const int id = btf__find_by_name_kind(types, name, BTF_KIND_ENUM);
    return id < 0 ? nullptr : btf__type_by_id(types, static_cast<std::uint32_t>(id));
}

Unavailable NoReasons()
{
    return {Unavailable::Cause::kKernel,
            "the kernel does not tell why it drops packets; Linux 5.17 and later do"};
}

}  // namespace

DropMeaning MeaningOf(std::string_view name)
{
    // Delivered: to a socket that its owner has closed, or in whose data it was already; to a TCP that it
    // told to end. Copies: for packet sockets; for raw sockets whose filters let them be.
    constexpr std::array<std::string_view, 11> kNever{
        "SKB_NOT_DROPPED_YET", "SKB_CONSUMED",  "SOCKET_CLOSE",      "SOCKET_FILTER",
        "UNIX_DISCONNECT",     "UNIX_SKIP_OOB", "PACKET_SOCK_ERROR", "TCP_OFOMERGE",
        "TCP_OLD_DATA",        "TCP_OLD_ACK",   "TCP_RESET"};
    if (std::ranges::find(kNever, name) != kNever.end()) return kNeverDrop;
    return name == "NOT_SPECIFIED" || name == "QUEUE_PURGE" ? kDropAtDevice : kAlwaysDrop;
}

DropReasons::DropReasons(std::string folder) : m_folder(std::move(folder))
{
    LogWhatLibbpfSays();
    const std::string path = m_folder + "/vmlinux";
    const Types types(btf__parse(path.c_str(), nullptr));
    if (types == nullptr)
        throw Unavailable(Unavailable::Cause::kKernel,
                          fmt::format("the kernel's types can't be read from {}: {}; needs a kernel with "
                                      "CONFIG_DEBUG_INFO_BTF",
                                      path, std::strerror(errno)));
    ForEachValue(types.get(), FindEnumeration(types.get(), "skb_drop_reason"),
                 [this](std::string_view name, std::uint32_t reason) {
                     const std::string_view bare = WithoutPrefix(name, kPrefix);
                     if (bare != "MAX" && reason >> kSubsystemShift == 0) m_names.emplace(reason, bare);
                 });
    if (m_names.empty()) throw NoReasons();
    ForEachValue(types.get(), FindEnumeration(types.get(), "skb_drop_reason_subsys"),
                 [this](std::string_view name, std::uint32_t subsystem) {
                     const std::string_view bare = WithoutPrefix(name, kSubsystemPrefix);
                     if (subsystem != 0 && bare != "NUM") m_subsystems.emplace(subsystem, bare);
                 });
    ReadTracepoint(types.get());
    ReadSubsystems(types.get(), 1);
}

void DropReasons::ReadTracepoint(const btf* types)
{
    // A function of a pointer of the kernel's own, and the tracepoint's arguments: packet, location, reason,
    // socket.
    const int id = btf__find_by_name_kind(types, "btf_trace_kfree_skb", BTF_KIND_TYPEDEF);
    const btf_type* type = id < 0 ? nullptr : btf__type_by_id(types, static_cast<std::uint32_t>(id));
    if (type != nullptr) type = btf__type_by_id(types, type->type);
    if (type != nullptr && btf_is_ptr(type)) type = btf__type_by_id(types, type->type);
    if (type == nullptr || !btf_is_func_proto(type) || btf_vlen(type) < 4) throw NoReasons();
    m_hasSocket = btf_vlen(type) >= 5;
}

// A subsystem's reasons are an enumeration of its own, whose name ends like this.
void DropReasons::ReadSubsystems(const btf* types, std::uint32_t firstType)
{
    for (std::uint32_t id = firstType; id < btf__type_cnt(types); ++id) {
        const btf_type* type = btf__type_by_id(types, id);
        if (!btf_is_enum(type) || !NameAt(types, type->name_off).ends_with("drop_reason")) continue;
        ForEachValue(types, type, [this](std::string_view name, std::uint32_t reason) {
            if (m_subsystems.contains(reason >> kSubsystemShift) && !name.starts_with('_'))
                m_names.emplace(reason, name);
        });
    }
}

// A module's name is the beginning of its subsystem's, such as mac80211 of MAC80211_UNUSABLE.
void DropReasons::ReadModule(std::uint32_t subsystem)
{
    const auto found = m_subsystems.find(subsystem);
    if (found == m_subsystems.end()) return;
    std::string name = found->second;
    std::ranges::transform(name, name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder, error)) {
        const std::string module = entry.path().filename().string();
        if (!name.starts_with(module)) continue;
        const Types base(btf__parse((m_folder + "/vmlinux").c_str(), nullptr));
        const Types types(base == nullptr ? nullptr : btf__parse_split(entry.path().c_str(), base.get()));
        if (types != nullptr) ReadSubsystems(types.get(), btf__type_cnt(base.get()));
    }
}

std::string_view DropReasons::NameOf(std::uint32_t reason)
{
    if (const auto found = m_names.find(reason); found != m_names.end()) return found->second;
    const std::uint32_t subsystem = reason >> kSubsystemShift;
    ReadModule(subsystem);
    const auto named = m_subsystems.find(subsystem);
    std::string name = named == m_subsystems.end()
                           ? fmt::format("{}", reason)
                           : fmt::format("{}_{}", named->second, reason & ((1U << kSubsystemShift) - 1));
    return m_names.emplace(reason, std::move(name)).first->second;
}

}  // namespace capture
