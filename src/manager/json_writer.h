// Writes JSON (RFC 8259) into a string as it goes, without a tree in between: the state of ten thousand
// interfaces is written while packets wait. Checks nothing: members and values come in the caller's order.

#ifndef MANAGER_JSON_WRITER_H
#define MANAGER_JSON_WRITER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace manager {

class JsonWriter {
public:
    explicit JsonWriter(std::size_t expectedBytes) { m_text.reserve(expectedBytes); }

    void BeginObject() { Open('{'); }
    void EndObject() { Close('}'); }
    void BeginArray() { Open('['); }
    void EndArray() { Close(']'); }

    /// The name of an object's next member; plain ASCII without quotes.
    void Key(std::string_view name);

    /// Bytes that are no UTF-8, and control characters that YANG's strings can't have (RFC 7950, section 14),
    /// are replaced by U+FFFD.
    void Text(std::string_view value);
    void Number(std::int64_t value);
    /// A 64-bit number: a string in YANG's encoding (RFC 7951, section 6.1).
    void Counter(std::uint64_t value);
    void Boolean(bool value);

    [[nodiscard]] std::string Take() { return std::move(m_text); }

private:
    void Open(char bracket);
    void Close(char bracket);
    /// The comma between this and what stands before it.
    void Separate();

    std::string m_text;
    bool m_first = true;  // nothing stands in the innermost bracket yet, or a key stands before
};

}  // namespace manager

#endif
