// SPDX-License-Identifier: Apache-2.0
#include "cdb/rows/codec.h"

#include <zlib.h>

#include "cdb/model/value_message.h"
#include "cdb/rows/stored.pb.h"

namespace cdb::codec {
namespace {

constexpr std::string_view kMark = "sflow-switch store";
constexpr std::size_t kHeadSize = 5;  // the format in one byte, the checksum in four
constexpr unsigned kByteBits = 8;

template <typename Integer>
void AppendBigEndian(std::string& out, Integer number)
{
    for (unsigned shift = sizeof(Integer) * kByteBits; shift > 0; shift -= kByteBits)
        out += static_cast<char>(number >> (shift - kByteBits));
}

std::uint64_t BigEndian(std::string_view bytes)
{
    std::uint64_t number = 0;
    for (const char byte : bytes) number = number << kByteBits | static_cast<unsigned char>(byte);
    return number;
}

std::uint32_t Checksum(std::string_view key, std::string_view payload)
{
    const auto add = [](uLong sum, std::string_view bytes) {
        return ::crc32_z(sum, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    };
    return static_cast<std::uint32_t>(add(add(0, key), payload));
}

void ToMessage(const Row& row, stored::Row& message)
{
    for (const auto& [name, value] : row.leaves) {
        auto& leaf = *message.add_leaves();
        leaf.set_name(name);
        cdb::ToMessage(value, *leaf.mutable_value());
    }
}

/// Returns false if a value is out of its type's range.
bool FromMessage(const stored::Row& message, Row& row)
{
    row.leaves.resize(static_cast<std::size_t>(message.leaves_size()));
    auto leaf = row.leaves.begin();
    for (const auto& each : message.leaves()) {
        auto value = cdb::FromMessage(each.value());
        if (!value) return false;
        leaf->first = each.name();
        leaf->second = std::move(*value);
        ++leaf;
    }
    return true;
}

template <typename Message>
bool Parse(std::string_view payload, Message& message)
{
    return message.ParseFromArray(payload.data(), static_cast<int>(payload.size()));
}

}  // namespace

std::string FormatMark(std::uint32_t format)
{
    std::string mark(kMark);
    AppendBigEndian(mark, format);
    return mark;
}

std::optional<std::uint32_t> FormatOf(std::string_view mark)
{
    if (!mark.starts_with(kMark) || mark.size() != kMark.size() + sizeof(std::uint32_t)) return std::nullopt;
    return static_cast<std::uint32_t>(BigEndian(mark.substr(kMark.size())));
}

std::string NumberBytes(std::uint64_t number)
{
    std::string bytes;
    AppendBigEndian(bytes, number);
    return bytes;
}

std::optional<std::uint64_t> NumberOf(std::string_view bytes)
{
    if (bytes.size() != sizeof(std::uint64_t)) return std::nullopt;
    return BigEndian(bytes);
}

std::string UndoKey(std::uint64_t commit, std::uint32_t chunk)
{
    std::string bytes = NumberBytes(commit);
    AppendBigEndian(bytes, chunk);
    return bytes;
}

std::string Seal(std::string_view key, std::string_view payload)
{
    std::string sealed;
    sealed.reserve(kHeadSize + payload.size());
    sealed += static_cast<char>(kFormat);
    AppendBigEndian(sealed, Checksum(key, payload));
    sealed += payload;
    return sealed;
}

std::optional<std::string_view> Payload(std::string_view sealed)
{
    if (sealed.size() < kHeadSize || sealed.front() != static_cast<char>(kFormat)) return std::nullopt;
    return sealed.substr(kHeadSize);
}

bool IsIntact(std::string_view key, std::string_view sealed)
{
    const auto payload = Payload(sealed);
    return payload && BigEndian(sealed.substr(1, sizeof(std::uint32_t))) == Checksum(key, *payload);
}

void ToBytes(const Row& row, std::string& payload)
{
    stored::Row message;
    ToMessage(row, message);
    message.SerializeToString(&payload);
}

std::string ToBytes(const HistoryEntry& entry, std::uint32_t undoChunks, bool undoLeftOut)
{
    stored::HistoryEntry message;
    message.set_commit(entry.commit);
    message.set_time_us(entry.timeUs);
    message.set_user(entry.user);
    message.set_source(entry.source);
    message.set_comment(entry.comment);
    message.set_undo_chunks(undoChunks);
    message.set_undo_left_out(undoLeftOut);
    message.set_changes(entry.changes);
    return message.SerializeAsString();
}

std::string UndoBytes(const HistoryEntry& entry)
{
    stored::Undo message;
    message.set_xml(entry.undo);
    for (const auto& undo : entry.undoRows) {
        auto& row = *message.add_rows();
        row.set_key(undo.key);
        if (undo.row) ToMessage(*undo.row, *row.mutable_row());
    }
    return message.SerializeAsString();
}

std::string ToBytes(const Fault& fault)
{
    stored::Fault message;
    message.set_number(fault.number);
    message.set_time_us(fault.timeUs);
    message.set_process(fault.process);
    message.set_pid(fault.pid);
    message.set_kind(fault.kind);
    message.set_function(fault.function);
    message.set_file(fault.file);
    message.set_line(fault.line);
    message.set_text(fault.text);
    return message.SerializeAsString();
}

std::optional<StoredHistoryEntry> HistoryEntryOf(std::string_view payload)
{
    stored::HistoryEntry message;
    if (!Parse(payload, message)) return std::nullopt;
    HistoryEntry entry{message.commit(), message.time_us(), message.user(),
                       message.source(), message.comment(), message.undo()};
    entry.changes = message.changes();
    entry.undoKept = message.undo_chunks() > 0 || !message.undo().empty();
    return StoredHistoryEntry{std::move(entry), message.undo_chunks(), message.undo_left_out()};
}

bool ReadUndo(std::string_view payload, HistoryEntry& entry)
{
    stored::Undo message;
    if (!Parse(payload, message)) return false;
    entry.undo = message.xml();
    entry.undoRows.clear();
    entry.undoRows.reserve(static_cast<std::size_t>(message.rows_size()));
    for (const auto& each : message.rows()) {
        auto& undo = entry.undoRows.emplace_back(UndoRow{each.key(), std::nullopt});
        if (each.has_row() && !FromMessage(each.row(), undo.row.emplace())) return false;
    }
    return true;
}

std::string ToBytes(const Checkpoint& checkpoint)
{
    stored::Checkpoint message;
    message.set_commit(checkpoint.commit);
    message.set_time_us(checkpoint.timeUs);
    message.set_user(checkpoint.user);
    return message.SerializeAsString();
}

std::optional<Checkpoint> CheckpointOf(std::string_view name, std::string_view payload)
{
    stored::Checkpoint message;
    if (!Parse(payload, message)) return std::nullopt;
    return Checkpoint{std::string(name), message.commit(), message.time_us(), message.user()};
}

std::string ToBytes(const PendingCommit& pending)
{
    stored::PendingCommit message;
    message.set_return_to(pending.returnTo);
    message.set_last(pending.last);
    message.set_deadline_us(pending.deadlineUs);
    message.set_timeout_seconds(pending.timeoutSeconds);
    message.set_user(pending.user);
    message.set_persist_id(pending.persistId);
    return message.SerializeAsString();
}

std::optional<PendingCommit> PendingCommitOf(std::string_view payload)
{
    stored::PendingCommit message;
    if (!Parse(payload, message)) return std::nullopt;
    return PendingCommit{message.return_to(),       message.last(), message.deadline_us(),
                         message.timeout_seconds(), message.user(), message.persist_id()};
}

std::string ToBytes(const NodeRole& role)
{
    stored::NodeRole message;
    message.set_role(static_cast<std::uint32_t>(role.role));
    message.set_since_us(role.sinceUs);
    message.set_user(role.user);
    return message.SerializeAsString();
}

std::optional<NodeRole> NodeRoleOf(std::string_view payload)
{
    stored::NodeRole message;
    if (!Parse(payload, message) || message.role() > static_cast<std::uint32_t>(Role::kStandby))
        return std::nullopt;
    return NodeRole{static_cast<Role>(message.role()), message.since_us(), message.user()};
}

std::optional<Fault> FaultOf(std::string_view payload)
{
    stored::Fault message;
    if (!Parse(payload, message)) return std::nullopt;
    return Fault{message.number(),   message.time_us(), message.process(), message.pid(), message.kind(),
                 message.function(), message.file(),    message.line(),    message.text()};
}

RowKeys::RowKeys(SchemaTable schema) : m_schema(std::move(schema))
{
    m_paths.reserve(m_schema.Size());
    for (const auto& node : m_schema.Nodes()) m_paths.push_back(m_schema.PathOf(node.id) + '\0');
}

void RowKeys::Prefix(NodeId node, std::span<const std::string> keys, std::string& out) const
{
    out = m_paths[node];
    for (const auto& key : keys) {
        out += key;
        out += '\0';
    }
}

std::optional<RowKey> RowKeys::KeyOf(std::string_view rowKey) const
{
    const auto end = std::min(rowKey.find('\0'), rowKey.size());
    RowKey key{m_schema.Find(rowKey.substr(0, end)), {}};
    if (key.node == kNoNode) return std::nullopt;
    Split(rowKey.substr(std::min(end + 1, rowKey.size())), key.keys);
    return key;
}

void RowKeys::Split(std::string_view rest, std::vector<std::string>& keys)
{
    std::size_t count = 0;
    while (!rest.empty()) {
        const auto end = std::min(rest.find('\0'), rest.size());
        if (count == keys.size()) keys.emplace_back();
        keys[count++].assign(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    keys.resize(count);
}

std::string Readable(std::string_view rowKey)
{
    const auto end = std::min(rowKey.find('\0'), rowKey.size());
    std::string text(rowKey.substr(0, end));
    rowKey.remove_prefix(std::min(end + 1, rowKey.size()));
    std::vector<std::string> keys;
    RowKeys::Split(rowKey, keys);
    for (const auto& key : keys) text += '{' + key + '}';
    return text;
}

}  // namespace cdb::codec
