// SPDX-License-Identifier: Apache-2.0
// One document's way down the schema, element by element: each has to be known, to stand once where it
// may stand once, to have its keys, and no attribute but those that mean something. So what libyang
// reads afterwards holds nothing that costs it more than its length. Values are libyang's matter.
// Fed by the readers of XML and of JSON.

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
    /// Begins in `top`: the root of the data, or an operation, of which an anydata parameter holds data.
    Walk(const SchemaIndex& index, const Node& top, std::size_t maxText);

    // Each of these gives null or false for what is refused; then Problem says why, and the walk is over.

    /// The child that is meant.
    const Node* Find(std::string_view ns, std::string_view name);
    /// Notes that the child is there; refuses it the second time.
    bool Mention(const Node& child);
    bool CheckAttributes(const Node& child, std::span<const netconf::XmlAttribute> attributes);
    void Enter(const Node& child);
    bool Text(std::string_view piece);
    bool Leave();

    /// Refuses the content of the innermost open node.
    bool BadContent(const std::string& message);
    bool BadOperation(const Node& child, std::string_view operation);
    bool UnknownAttribute(const Node& child, std::string_view name, std::string_view why);

    [[nodiscard]] const Node& Here() const { return *m_frames[m_depth].node; }
    /// Whether the innermost open node holds data or is some.
    [[nodiscard]] bool InData() const { return m_dataDepth.has_value(); }
    [[nodiscard]] const cdb::Error& Problem() const { return m_problem; }
    /// libyang's data path of the innermost open node, as far as its keys have been seen.
    [[nodiscard]] std::string Path() const;

private:
    struct Frame {
        const Node* node = nullptr;
        std::vector<std::uint64_t> seen{};  // a bit a child
        std::size_t textLength = 0;
        std::string text{};               // of a key
        std::vector<std::string> keys{};  // of an entry; empty where not seen
        /// How often each entry stands in here, by its list and keys. Ordered, so that no choice of keys
        /// makes it slow.
        std::map<std::string, std::uint8_t> entries{};
    };

    [[nodiscard]] const Node& ParentOf() const;
    [[nodiscard]] std::string PathOf(const Node& child) const;
    [[nodiscard]] std::string Described(std::size_t depth) const;
    [[nodiscard]] std::string Described(const Node& child) const;
    bool Refuse(cdb::ErrorTag tag, std::string path, std::string message,
                std::vector<std::pair<std::string, std::string>> info);
    void RefuseUnknown(std::string_view ns, std::string_view name);
    bool CheckKeys(const Frame& entry);
    bool CountEntry(const Frame& entry, Frame& holder);

    const SchemaIndex& m_index;
    const std::size_t m_maxText;
    std::vector<Frame> m_frames;  // up to m_depth in use; the others keep their memory
    std::size_t m_depth = 0;
    std::optional<std::size_t> m_dataDepth;  // of the frame that holds top-level data
    cdb::Error m_problem;
};

}  // namespace guard

#endif
