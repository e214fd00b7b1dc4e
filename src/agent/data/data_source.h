// SPDX-License-Identifier: Apache-2.0
// Where data to be written comes from: configuration rows, or a tree of state (agent/state/state_tree.h). The
// writer, which knows the schema, walks it from the top down and asks for the nodes that it wants.

#ifndef AGENT_DATA_DATA_SOURCE_H
#define AGENT_DATA_DATA_SOURCE_H

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/data/data_schema.h"
#include "cdb/rows/row_view.h"

struct lysc_node;

namespace agent {

/// A reference to a callable, for callbacks that are called only before the function that takes them returns.
/// Unlike std::function it never allocates and owns nothing.
template <typename Signature>
class FunctionRef;

template <typename Result, typename... Arguments>
class FunctionRef<Result(Arguments...)> {
public:
    /// `function` must outlive the last call.
    template <typename Function>
    requires(!std::is_same_v<std::remove_cvref_t<Function>, FunctionRef> &&
             std::is_invocable_r_v<Result, Function&, Arguments...>)
        // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): the requirement leaves copies alone
        FunctionRef(Function&& function)
        : m_object(const_cast<void*>(static_cast<const void*>(std::addressof(function)))),
          m_call([](void* object, Arguments... arguments) -> Result {
              return (*static_cast<std::add_pointer_t<std::remove_reference_t<Function>>>(object))(
                  std::forward<Arguments>(arguments)...);
          })
    {
    }

    Result operator()(Arguments... arguments) const
    {
        return m_call(m_object, std::forward<Arguments>(arguments)...);
    }

private:
    void* m_object;
    Result (*m_call)(void*, Arguments...);
};

/// Views and handles are valid during the visit only. While a node is visited, the caller may ask for it and
/// for what is below it, and for nothing above or beside it.
class DataSource {
public:
    using Handle = const void*;  // a container or list entry of this source; null: above the top-level nodes
    using ValueVisit = FunctionRef<void(std::string_view text, bool isDefault)>;
    using NodeVisit = FunctionRef<bool(Handle node)>;  // false: stop

    virtual ~DataSource() = default;

    /// The value of a leaf or the values of a leaf-list, as canonical text. isDefault: not set explicitly.
    virtual void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) = 0;

    /// Visits the container once if it is there. A plain container may be left out if it is empty.
    virtual void Container(Handle at, const lysc_node* container, const NodeVisit& visit) = 0;

    /// Visits the entries in ascending byte order of their keys.
    virtual void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) = 0;

    /// Visits the entry with these keys (canonical text) if it is there, by look-up.
    virtual void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
                       const NodeVisit& visit) = 0;
};

/// What stands for a leaf that is not set.
enum class Missing {
    kDefaults,  // its default in the schema
    kInUse      // also, for a leaf that has the value of another one then, that value (default-ref)
};

/// Configuration as data, straight from a datastore's rows.
class RowSource final : public DataSource {
public:
    /// Both must outlive this.
    RowSource(const DataSchema& schema, cdb::RowView& rows, Missing missing = Missing::kDefaults);

    void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) override;
    void Container(Handle at, const lysc_node* container, const NodeVisit& visit) override;
    void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) override;
    void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
               const NodeVisit& visit) override;

private:
    struct Place;
    static std::size_t KeysOf(Handle at);
    [[nodiscard]] const DataNode* Configured(const lysc_node* schema) const;
    const cdb::Row* KeepRow(const DataNode& node, std::size_t keys);

    const DataSchema& m_schema;
    cdb::RowView& m_rows;
    const Missing m_missing;
    std::vector<std::string> m_keys;  // of the entries on the way to the visited node
    std::vector<cdb::Row> m_kept;     // by depth: a looked-up row is kept while the nodes below it are read
};

}  // namespace agent

#endif
