// SPDX-License-Identifier: Apache-2.0
// Names as C++ has them against names as the YANG modules have them, for all bytes and lengths.

#include "cdb/model/name.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "cdb/schema/schema.h"

namespace {

using Rule = bool (*)(std::string_view);

/// Whether libyang takes the text as the value of the leaf.
bool Fits(const cdb::Schema& schema, const char* leaf, const std::string& text)
{
    const lysc_node* node = schema.NodeOf(schema.Table().Find(leaf));
    if (node == nullptr) throw std::logic_error(std::string("there is no ") + leaf);
    return lyd_value_validate(schema.Context(), node, text.data(), text.size(), nullptr, nullptr, nullptr) ==
           LY_SUCCESS;
}

/// Texts on both sides of each bound of the rule.
std::vector<std::string> Texts()
{
    std::vector<std::string> texts{"", std::string(64, 'a'), std::string(65, 'a'), "\xC3\xA4"};
    for (int byte = 0; byte < 256; ++byte)
        for (const char* begin : {"", "a"}) texts.push_back(begin + std::string(1, static_cast<char>(byte)));
    return texts;
}

TEST(Name, IsWhatTheModulesSay)
{
    const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    const struct {
        const char* leaf;
        Rule rule;
    } rows[] = {{"/config/oam/sflow/collector/name", &cdb::IsCollectorName},
                {"/config/oam/sflow/interface/name", &cdb::IsName}};
    for (const auto& row : rows) {
        std::size_t taken = 0;
        for (const std::string& text : Texts()) {
            EXPECT_EQ(row.rule(text), Fits(*schema, row.leaf, text))
                << row.leaf << ": " << ::testing::PrintToString(text);
            taken += row.rule(text) ? 1U : 0U;
        }
        EXPECT_GT(taken, 2U * 80U) << row.leaf;
    }
}

}  // namespace
