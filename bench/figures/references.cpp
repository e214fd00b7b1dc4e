// SPDX-License-Identifier: Apache-2.0
// What the figures are compared with (see the header).

#include "figures/references.h"

#include <libyang/libyang.h>
#include <lmdb.h>

#include <cstdlib>
#include <stdexcept>

#include "cdb/schema/schema.h"
#include "figures/measure.h"
#include "support/world.h"

namespace figures {

namespace {

void Check(int code)
{
    if (code != MDB_SUCCESS) throw std::runtime_error(std::string("lmdb: ") + mdb_strerror(code));
}

}  // namespace

struct OneRowStore::Environment {
    MDB_env* env = nullptr;
    MDB_dbi rows = 0;
    unsigned count = 0;
};

OneRowStore::OneRowStore(const std::filesystem::path& directory)
    : m_environment(std::make_unique<Environment>())
{
    std::filesystem::create_directories(directory);
    Check(mdb_env_create(&m_environment->env));
    Check(mdb_env_set_mapsize(m_environment->env, std::size_t{1} << 28));
    Check(mdb_env_open(m_environment->env, directory.c_str(), 0, 0600));
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(m_environment->env, nullptr, 0, &transaction));
    Check(mdb_dbi_open(transaction, nullptr, 0, &m_environment->rows));
    Check(mdb_txn_commit(transaction));
}

OneRowStore::~OneRowStore() { mdb_env_close(m_environment->env); }

double OneRowStore::TimedCommit()
{
    std::string key = "row " + std::to_string(m_environment->count++ % 1000);
    std::string value(200, static_cast<char>('a' + m_environment->count % 26));
    MDB_val keyBytes{key.size(), key.data()};
    MDB_val valueBytes{value.size(), value.data()};
    const Stopwatch watch;
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(m_environment->env, nullptr, 0, &transaction));
    Check(mdb_put(transaction, m_environment->rows, &keyBytes, &valueBytes, 0));
    Check(mdb_txn_commit(transaction));
    return watch.Milliseconds();
}

struct YangReference::Tree {
    std::unique_ptr<cdb::Schema> schema;
    lyd_node* first = nullptr;
};

YangReference::YangReference() : m_tree(std::make_unique<Tree>())
{
    m_tree->schema = cdb::Schema::Load(support::World::Tree() / "yang");
}

YangReference::~YangReference() { lyd_free_all(m_tree->first); }

double YangReference::TimedParse(const std::string& xml)
{
    lyd_free_all(m_tree->first);
    m_tree->first = nullptr;
    const Stopwatch watch;
    const auto result = lyd_parse_data_mem(m_tree->schema->Context(), xml.c_str(), LYD_XML, LYD_PARSE_STRICT,
                                           LYD_VALIDATE_NO_STATE, &m_tree->first);
    const double time = watch.Milliseconds();
    if (result != LY_SUCCESS)
        throw std::runtime_error(std::string("libyang refuses the data: ") +
                                 ly_errmsg(m_tree->schema->Context()));
    return time;
}

double YangReference::TimedPrint()
{
    char* text = nullptr;
    const Stopwatch watch;
    const auto result =
        lyd_print_mem(&text, m_tree->first, LYD_XML, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
    const double time = watch.Milliseconds();
    std::free(text);
    if (result != LY_SUCCESS) throw std::runtime_error("libyang can't print its tree");
    return time;
}

}  // namespace figures
