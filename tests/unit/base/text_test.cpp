// SPDX-License-Identifier: Apache-2.0
// Texts of peers, made presentable for logs and state.

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"

namespace {

struct Row {
    const char* name;
    std::string given;
    std::string shown;
};

class TextTest : public testing::TestWithParam<Row> {};

TEST_P(TextTest, IsShownAs)
{
    EXPECT_EQ(base::Presentable(GetParam().given), GetParam().shown);
    std::string inPlace = GetParam().given;
    base::MakePresentable(inPlace);
    EXPECT_EQ(inPlace, GetParam().shown);
    EXPECT_EQ(base::Presentable(GetParam().shown), GetParam().shown);
    EXPECT_EQ(base::IsPresentable(GetParam().given), GetParam().given == GetParam().shown);
    EXPECT_TRUE(base::IsPresentable(GetParam().shown));
}

INSTANTIATE_TEST_SUITE_P(
    Table, TextTest,
    testing::Values(Row{"Empty", "", ""}, Row{"Plain", "it broke", "it broke"},
                    Row{"TabAndLineFeed", "a\tb\nc", "a\tb\nc"}, Row{"CarriageReturn", "a\rb", "a?b"},
                    Row{"Nul", std::string("a\0b", 3), "a?b"}, Row{"Escape", "\x1b[31m", "?[31m"},
                    Row{"Delete", "a\x7f", "a?"}, Row{"C1", "a\xc2\x85z", "a?z"},
                    Row{"Umlaut", "Z\xc3\xbcrich", "Z\xc3\xbcrich"},
                    Row{"Euro", "\xe2\x82\xac", "\xe2\x82\xac"},
                    Row{"Emoji", "\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},
                    Row{"FFFE", "a\xef\xbf\xbez", "a?z"}, Row{"FFFF", "a\xef\xbf\xbfz", "a?z"},
                    Row{"Replacement", "\xef\xbf\xbd", "\xef\xbf\xbd"},
                    Row{"NonCharacterOfAHigherPlane", "\xf0\x9f\xbf\xbe", "?"},
                    Row{"FDD0", "\xef\xb7\x90", "?"}, Row{"LoneContinuation", "a\x80z", "a?z"},
                    Row{"CutShort", "a\xe2\x82", "a??"}, Row{"Overlong", "\xc0\xaf", "??"},
                    Row{"OverlongThree", "\xe0\x80\xaf", "???"}, Row{"Surrogate", "\xed\xa0\x80", "???"},
                    Row{"BeyondUnicode", "\xf4\x90\x80\x80", "????"}, Row{"NoUtf8AtAll", "\xff\xfe", "??"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Text, IsCutBetweenCharacters)
{
    EXPECT_EQ(base::Presentable("abcd", 3), "abc");
    EXPECT_EQ(base::Presentable("ab\xe2\x82\xac", 4), "ab");
    EXPECT_EQ(base::Presentable("ab\xe2\x82\xac", 5), "ab\xe2\x82\xac");
    EXPECT_EQ(base::Presentable(std::string(100'000, 'x')).size(), base::kMaxPeerText);
    std::string inPlace(100'000, 'x');
    base::MakePresentable(inPlace, 10);
    EXPECT_EQ(inPlace, std::string(10, 'x'));
}

}  // namespace
