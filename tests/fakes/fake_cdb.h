// SPDX-License-Identifier: Apache-2.0
// The configuration database in memory: data, sessions and reads. A test can make any call fail and
// any leaf deliver a value of any type. Does not know the C functions (fake_confd.cpp).

#ifndef FAKES_FAKE_CDB_H
#define FAKES_FAKE_CDB_H

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "fakes/fake_schema.h"

namespace fakes {

/// What is configured. Paths have keys in braces; std::string compares by bytes, so keys ascend.
struct Data {
    std::map<std::string, Value> leaves;                 // those with a value of their own
    std::map<std::string, std::set<std::string>> lists;  // list path to keys
};

/// A path that was understood: the schema node's, and the instance's with keys filled in.
struct Place {
    const SchemaNode* node = nullptr;
    std::string instance;
    bool isEntry = false;  // of a list, not the list itself
};

class Cdb {
public:
    /// Replaces everything by the RFC 7951 JSON of the container `config` (module names of members
    /// are not looked at). Throws std::invalid_argument for what the schema does not have.
    void Load(const std::string& json);

    /// Creates a list entry with its ancestors; sets a leaf of an existing entry.
    void Create(const std::string& entry);
    void Set(const std::string& leaf, Value value);
    /// Removes the entry with everything below it, or the leaf's own value.
    void Delete(const std::string& path);

    /// From now on every read delivers this value for this leaf, whatever its type.
    void Deliver(const std::string& leaf, Value value) { m_delivered[leaf] = std::move(value); }

    /// From now on the call for exactly this path, its arguments filled in, returns `result`; a
    /// negative one with this reason. `call` is the C function's name.
    struct Outcome {
        int result = 0;
        std::string reason;
    };
    void Return(const std::string& call, const std::string& path, int result, std::string reason)
    {
        m_outcomes[call + " " + path] = {result, std::move(reason)};
    }
    [[nodiscard]] const Outcome* Forced(const std::string& call, const std::string& path) const;

    /// A session reads the data as they are now.
    int OpenSession();
    void CloseSession(int socket) { m_sessions.erase(socket); }
    [[nodiscard]] std::size_t OpenSessions() const { return m_sessions.size(); }
    [[nodiscard]] const Data* SessionData(int socket) const;

    /// The place of a path, or what is wrong with it.
    static std::variant<Place, std::string> Resolve(const Data& data, const std::string& path);
    static bool Exists(const Data& data, const Place& place);
    static std::vector<std::string> Keys(const Data& data, const Place& list);

    /// A leaf's value with its default, or an entry's or container's leaves in schema order.
    [[nodiscard]] Value Leaf(const Data& data, const SchemaNode& node, const std::string& instance) const;
    [[nodiscard]] std::vector<Value> Leaves(const Data& data, const SchemaNode& node,
                                            const std::string& instance) const;

    void Reset() { *this = Cdb(); }

private:
    Data m_data;
    std::map<std::string, Value> m_delivered;
    std::map<std::string, Outcome> m_outcomes;
    std::map<int, std::shared_ptr<const Data>> m_sessions;
    int m_nextSocket = 100;
};

}  // namespace fakes

#endif
