// The bytes of the store's keys and values, as docs/datastore.md describes them. Knows no LMDB.
// Used by the store's files only.

#ifndef CDB_STORE_CODEC_H
#define CDB_STORE_CODEC_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/schema_table.h"
#include "cdb/store.h"

namespace cdb::codec {

/// The format that this program writes, and the newest that it reads.
inline constexpr std::uint32_t kFormat = 1;

inline constexpr std::string_view kFormatKey = "format";
inline constexpr std::string_view kSchemaKey = "schema";
inline constexpr std::string_view kCommitKey = "commit";

/// What stands under kFormatKey.
std::string FormatMark(std::uint32_t format = kFormat);

/// The format that a mark names; nullopt for what is no mark.
std::optional<std::uint32_t> FormatOf(std::string_view mark);

/// A number as a key or payload: eight bytes, most significant first.
std::string NumberBytes(std::uint64_t number);
std::optional<std::uint64_t> NumberOf(std::string_view bytes);

/// A value with its head: format and checksum over key and payload.
std::string Seal(std::string_view key, std::string_view payload);

/// The payload; nullopt for a head of another format. The checksum is not looked at: IsIntact does.
std::optional<std::string_view> Payload(std::string_view sealed);
bool IsIntact(std::string_view key, std::string_view sealed);

void ToBytes(const Row& row, std::string& payload);
std::string ToBytes(const HistoryEntry& entry);
std::string ToBytes(const Fault& fault);

/// Reads a row into one that has been used before, whose memory serves again. False for bytes that are
/// no row; `row` is then unspecified.
bool ReadRow(std::string_view payload, Row& row);

std::optional<HistoryEntry> HistoryEntryOf(std::string_view payload);
std::optional<Fault> FaultOf(std::string_view payload);

/// Row keys under one schema: "/config/oam/sflow/interface" NUL, then each key NUL.
class RowKeys {
public:
    explicit RowKeys(SchemaTable schema);

    [[nodiscard]] const SchemaTable& Schema() const { return m_schema; }

    /// What the keys of a node's rows below these keys begin with; the whole key when they are all.
    void Prefix(NodeId node, std::span<const std::string> keys, std::string& out) const;

    /// The keys that follow the prefix.
    static void Split(std::string_view rest, std::vector<std::string>& keys);

private:
    SchemaTable m_schema;
    std::vector<std::string> m_paths;  // by NodeId, with the NUL
};

/// A row's key for messages: "/config/oam/sflow/interface{eth1}".
std::string Readable(std::string_view rowKey);

}  // namespace cdb::codec

#endif
