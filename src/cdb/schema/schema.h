// SPDX-License-Identifier: Apache-2.0
// The YANG modules, compiled by libyang, and the schema table derived from them.

#ifndef CDB_SCHEMA_SCHEMA_H
#define CDB_SCHEMA_SCHEMA_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cdb/model/error.h"
#include "cdb/model/schema_table.h"

struct ly_ctx;
struct lysc_node;

namespace cdb {

struct Reach;

class Schema {
public:
    /// Loads our modules from `directory` and the IETF modules that NETCONF needs from their installed
    /// directory. Throws FatalError that names the module, the line and the problem: a module that does not
    /// compile, a configuration node without a tag, a leaf of a type that Value can't hold, a default-ref
    /// that is no sibling leaf of the same type.
    static std::unique_ptr<Schema> Load(const std::filesystem::path& directory);
    ~Schema();

    /// Owned by the Schema, which must outlive all trees of the context.
    [[nodiscard]] ly_ctx* Context() const;
    [[nodiscard]] const SchemaTable& Table() const;

    /// Maps between a libyang schema node of configuration and its row in the table; kNoNode or null if there
    /// is none.
    [[nodiscard]] NodeId IdOf(const lysc_node* node) const;
    [[nodiscard]] const lysc_node* NodeOf(NodeId id) const;

    /// How far the constraints of the configuration reach (reach.h).
    [[nodiscard]] const Reach& Constraints() const;

    /// The implemented modules, for hello. The revision may be empty.
    struct Module {
        std::string name;
        std::string revision;
        std::string ns;
        std::vector<std::string> features;  // those that are supported
    };
    [[nodiscard]] std::vector<Module> Modules() const;

    /// A hash over the text of all modules, imported ones too, and libyang's version: data that is valid by a
    /// schema is valid by any schema with the same fingerprint.
    [[nodiscard]] const std::string& Fingerprint() const;

    /// For yang-library (RFC 8525): a hash over the modules' names, revisions, features and texts. Changes
    /// with them, and with nothing else: neither with libyang's version nor with the directory.
    [[nodiscard]] const std::string& ContentId() const;

private:
    class Impl;
    explicit Schema(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cdb

#endif
