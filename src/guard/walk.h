// SPDX-License-Identifier: Apache-2.0
// Follows a document down the schema, element by element: each must be known, must not repeat where it
// may occur once, must have its keys, and no attribute but those that mean something. So libyang's work
// on the document grows only with its length. libyang checks the values. Fed by the readers of XML and
// of JSON.

#ifndef GUARD_WALK_H
#define GUARD_WALK_H

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/error.h"
#include "guard/schema_index.h"
#include "netconf/xml.h"

namespace guard {

class Walk {
public:
    /// Begins in `top`: the root of the data, or an operation, whose anydata parameter holds data. A value
    /// has at most `maxText` bytes.
    Walk(const SchemaIndex& index, const Node& top, std::size_t maxText);

    /// The attributes that nodes of data may have: nc:operation, and, on leaves, the tag "default" of RFC
    /// 6243.
    struct Attributes {
        bool operation = true;
        bool isDefault = false;
    };
    void Allow(Attributes attributes) { m_allowed = attributes; }

    // Each of these returns null or false if it refuses; Problem then says why, and the walk is over.

    /// The child of the innermost open node.
    const Node* Find(std::string_view ns, std::string_view name);
    /// Notes that the child is there; refuses a second one.
    bool Mention(const Node& child);
    bool CheckAttributes(const Node& child, std::span<const netconf::XmlAttribute> attributes);
    void Enter(const Node& child);
    bool Text(std::string_view piece);
    bool Leave();

    /// Always refuses: the content of the innermost open node. The message follows the node's description.
    bool BadContent(const std::string& message);
    /// Refuses an operation attribute that is none of an edit's operations.
    bool BadOperation(const Node& child, std::string_view operation);
    /// Always refuses. `why`: the remedy.
    bool UnknownAttribute(const Node& child, std::string_view name, std::string_view why);

    [[nodiscard]] const Node& Here() const { return *m_frames[m_depth].node; }
    /// Whether the innermost open node is data, or holds data directly.
    [[nodiscard]] bool InData() const { return m_dataDepth.has_value(); }
    [[nodiscard]] const cdb::Error& Problem() const { return m_problem; }
    /// libyang's data path of the innermost open node, with the keys seen so far.
    [[nodiscard]] std::string Path() const;

private:
    struct Frame {
        const Node* node = nullptr;
        std::vector<std::uint64_t> seen{};  // a bit for each child
        std::size_t textLength = 0;
        std::string text{};               // of a key
        std::vector<std::string> keys{};  // of an entry; empty if not seen yet
        /// How often each list entry occurs here, by its list and keys. Ordered, so that no choice of
        /// keys makes it slow.
        std::map<std::string, std::uint8_t> entries{};
    };

    [[nodiscard]] const Node& ParentOf() const;
    [[nodiscard]] std::string PathOf(const Node& child) const;
    [[nodiscard]] std::string Described(std::size_t depth) const;
    [[nodiscard]] std::string Described(const Node& child) const;
    bool CheckDefault(const Node& child, std::span<const netconf::XmlAttribute> attributes,
                      std::string_view value);
    bool Refuse(cdb::ErrorTag tag, std::string path, std::string message,
                std::vector<std::pair<std::string, std::string>> info);
    void RefuseUnknown(std::string_view ns, std::string_view name);
    bool CheckKeys(const Frame& entry);
    bool CountEntry(const Frame& entry, Frame& holder);

    const SchemaIndex& m_index;
    const std::size_t m_maxText;
    std::vector<Frame> m_frames;  // up to m_depth in use; the others keep their memory
    std::size_t m_depth = 0;
    Attributes m_allowed;
    std::optional<std::size_t> m_dataDepth;  // of the frame that holds top-level data
    cdb::Error m_problem;
};

}  // namespace guard

#endif
