// SPDX-License-Identifier: Apache-2.0
// The bytes of the store's keys and values, as docs/datastore.md describes them. Knows no LMDB. Used by
// cdb/rows and cdb/store only.

#ifndef CDB_ROWS_CODEC_H
#define CDB_ROWS_CODEC_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/history.h"
#include "cdb/model/row.h"
#include "cdb/model/schema_table.h"

namespace cdb::codec {

/// The format that this program writes, and the newest that it reads.
inline constexpr std::uint32_t kFormat = 1;

inline constexpr std::string_view kFormatKey = "format";
inline constexpr std::string_view kSchemaKey = "schema";
inline constexpr std::string_view kCommitKey = "commit";
inline constexpr std::string_view kFingerprintKey = "schema-fingerprint";
inline constexpr std::string_view kHistoryBytesKey = "history-bytes";
inline constexpr std::string_view kPendingCommitKey = "pending-commit";
inline constexpr std::string_view kNodeRoleKey = "node-role";

/// The bytes of an undo in one value: with its heads it fills exactly one page of the file, so that any free
/// page will do.
inline constexpr std::size_t kUndoChunk = 4075;
inline constexpr std::size_t kUndoKeySize = sizeof(std::uint64_t) + sizeof(std::uint32_t);

/// The value under kFormatKey.
std::string FormatMark(std::uint32_t format = kFormat);

/// The format that a mark names; nullopt if it is no mark.
std::optional<std::uint32_t> FormatOf(std::string_view mark);

/// A number as a key or payload: eight bytes, big endian. NumberOf returns nullopt for another length.
std::string NumberBytes(std::uint64_t number);
std::optional<std::uint64_t> NumberOf(std::string_view bytes);

/// The key of an undo's chunk: the commit's number, then the chunk's number in four bytes, big endian.
std::string UndoKey(std::uint64_t commit, std::uint32_t chunk);

/// A value with its head: format and checksum over key and payload.
std::string Seal(std::string_view key, std::string_view payload);

/// The payload; nullopt for a head of another format. IsIntact checks the checksum, Payload does not.
std::optional<std::string_view> Payload(std::string_view sealed);
bool IsIntact(std::string_view key, std::string_view sealed);

void ToBytes(const Row& row, std::string& payload);
/// The entry without its undo, which is stored as `undoChunks` chunks or was left out.
std::string ToBytes(const HistoryEntry& entry, std::uint32_t undoChunks, bool undoLeftOut);
/// The entry's undo; empty if it has none.
std::string UndoBytes(const HistoryEntry& entry);
std::string ToBytes(const Fault& fault);
/// The checkpoint without its name, which is the key.
std::string ToBytes(const Checkpoint& checkpoint);
std::string ToBytes(const PendingCommit& pending);
std::string ToBytes(const NodeRole& role);

/// Reads a row into one that may have been used before, and reuses its memory. Returns false if the bytes are
/// no row; `row` is then unspecified.
bool ReadRow(std::string_view payload, Row& row);

/// An entry as it is stored. An entry of an older version contains its undo.
struct StoredHistoryEntry {
    HistoryEntry entry;
    std::uint32_t undoChunks = 0;
    bool undoLeftOut = false;
};
std::optional<StoredHistoryEntry> HistoryEntryOf(std::string_view payload);
/// Reads an undo that UndoBytes has written into the entry; returns false for other bytes.
bool ReadUndo(std::string_view payload, HistoryEntry& entry);
std::optional<Checkpoint> CheckpointOf(std::string_view name, std::string_view payload);
std::optional<PendingCommit> PendingCommitOf(std::string_view payload);
/// Nullopt also for a role that is not known here.
std::optional<NodeRole> NodeRoleOf(std::string_view payload);
std::optional<Fault> FaultOf(std::string_view payload);

/// Row keys under one schema: "/config/oam/sflow/interface" NUL, then each key NUL.
class RowKeys {
public:
    explicit RowKeys(SchemaTable schema);

    [[nodiscard]] const SchemaTable& Schema() const { return m_schema; }

    /// The prefix of the keys of a node's rows below these keys; the whole row key if `keys` are all of its
    /// keys.
    void Prefix(NodeId node, std::span<const std::string> keys, std::string& out) const;

    /// The node and keys of a row's key; nullopt if the schema lacks the node.
    [[nodiscard]] std::optional<RowKey> KeyOf(std::string_view rowKey) const;

    /// Splits the rest of a row's key, behind a prefix, into keys.
    static void Split(std::string_view rest, std::vector<std::string>& keys);

private:
    SchemaTable m_schema;
    std::vector<std::string> m_paths;  // by NodeId, with the NUL
};

/// A row's key for messages: "/config/oam/sflow/interface{eth1}".
std::string Readable(std::string_view rowKey);

}  // namespace cdb::codec

#endif
