// SPDX-License-Identifier: Apache-2.0
// What an edit means (RFC 6241, section 7.2), worked out over a map of paths: simple, slow, and without any
// code of the database. Used by the laws of edits; random_edit.h makes the edits for them.

#ifndef AGENT_EDIT_MODEL_H
#define AGENT_EDIT_MODEL_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace agent_tests {

/// A node of the modules, as the model knows it.
struct ModelNode {
    enum class Kind : std::uint8_t { kContainer, kList, kLeaf };
    enum class Type : std::uint8_t { kName, kCollectorName, kBool, kNumber, kIpv4, kIpv4Plen };
    const char* name = "";
    const char* ns = "";
    Kind kind = Kind::kContainer;
    Type type = Type::kName;
    std::uint32_t least = 0;  // of a number
    std::uint32_t most = 0;
    std::vector<ModelNode> children{};  // of a list the leaf "name" first, its key
};

/// The container config, with all that can be configured.
const ModelNode& ModelRoot();

/// What is configured: "/config/oam/sflow/collector[c1]" for an entry, "…[c1]/port" for a leaf, with its
/// value.
using ModelState = std::map<std::string, std::string>;

/// The same of what get-config gives. Throws std::runtime_error for a text that is no XML.
ModelState StateOf(const std::string& data);
std::string Difference(const ModelState& wanted, const ModelState& found);

/// Every collector has an address, and what is referred to is there.
bool IsValid(const ModelState& state);

/// One element of an edit.
struct EditNode {
    const ModelNode* node = nullptr;
    std::string operation{};  // empty: none of its own
    std::string text{};       // of a leaf
    std::vector<EditNode> children{};
    std::string attributes{};   // more of them, written out
    std::string content{};      // written out, before the children
    bool isOutOfPlace = false;  // something in the last two, which has to be refused
};

struct EditParameters {
    std::string defaultOperation;
    std::string testOption;
    std::string errorOption;
};

/// What a callpoint writes into each new interface.
constexpr std::string_view kCallpointRate = "7777";

struct Expected {
    /// kEither: what the standard and the model leave open, such as blanks around a number.
    enum class Answer : std::uint8_t { kOk, kRefused, kEither } answer = Answer::kRefused;
    ModelState after;  // if the answer is ok
};
Expected Expect(const ModelState& before, const std::vector<EditNode>& edit,
                const EditParameters& parameters);

}  // namespace agent_tests

#endif
