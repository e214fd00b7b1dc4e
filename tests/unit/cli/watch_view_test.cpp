// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/watch_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using cli::Key;
using cli::SortOrder;
using cli::WatchedEntry;
using cli::WatchView;
using testing::ElementsAre;

struct WatchViewTest : testing::Test {
    WatchViewTest()
    {
        watched.entries = {
            WatchedEntry{"p1", {10, 5, 900}, "", {}},
            WatchedEntry{"p2", {30, 1, 100}, "", cli::Severity::kIdle},
            WatchedEntry{"p9", {std::nullopt, std::nullopt, std::nullopt}, "missing", cli::Severity::kBroken},
            WatchedEntry{"p10", {20, 9, 500}, "", {}}};
    }

    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const WatchedEntry* row : RowsOf(watched, view)) names.push_back(row->name);
        return names;
    }
    void Press(Key key, const std::string& text = {}) { OnKey(view, {key, text}, RowsOf(watched, view), 2); }
    void Type(const std::string& text)
    {
        for (const char c : text) Press(Key::kCharacter, std::string(1, c));
    }
    std::string Selected() const
    {
        const cli::Rows rows = RowsOf(watched, view);
        return rows.empty() ? "" : rows[SelectedRow(rows, view)]->name;
    }

    cli::Watched watched;
    WatchView view;
};

TEST_F(WatchViewTest, SortsWithBrokenOnesOnTop)
{
    EXPECT_THAT(Names(), ElementsAre("p9", "p1", "p2", "p10"));
    Type("s");
    EXPECT_EQ("packets", NameOf(view.order));
    EXPECT_THAT(Names(), ElementsAre("p9", "p2", "p10", "p1"));
    Type("s");
    EXPECT_EQ("bits", NameOf(view.order));
    EXPECT_THAT(Names(), ElementsAre("p9", "p1", "p10", "p2"));
    Type("s");
    EXPECT_EQ("samples", NameOf(view.order));
    EXPECT_THAT(Names(), ElementsAre("p9", "p10", "p1", "p2"));
    Type("s");
    EXPECT_EQ(SortOrder::kName, view.order);
}

TEST_F(WatchViewTest, AFilterIsTypedKeptAndCleared)
{
    Type("/p1q");
    EXPECT_TRUE(view.filters);
    EXPECT_THAT(Names(), ElementsAre());
    Press(Key::kBackspace);
    EXPECT_THAT(Names(), ElementsAre("p1", "p10"));
    Press(Key::kCharacter, "é");
    Press(Key::kBackspace);
    EXPECT_EQ("p1", view.filter);
    Press(Key::kEnter);
    EXPECT_FALSE(view.filters);
    EXPECT_EQ("p1", view.filter);
    Press(Key::kEscape);
    EXPECT_EQ("", view.filter);
    EXPECT_FALSE(view.left);
    Type("/x");
    Press(Key::kEscape);
    EXPECT_EQ("", view.filter);
    EXPECT_FALSE(view.filters);
    Type("/" + std::string(100, 'x'));
    EXPECT_EQ(64U, view.filter.size());
}

TEST_F(WatchViewTest, KeysSelectARowAndScrollToIt)
{
    EXPECT_EQ("p9", Selected());
    Press(Key::kUp);
    EXPECT_EQ("p9", Selected());
    Press(Key::kDown);
    EXPECT_EQ("p1", Selected());
    EXPECT_EQ(0U, view.first);
    Press(Key::kDown);
    EXPECT_EQ("p2", Selected());
    EXPECT_EQ(1U, view.first);
    Press(Key::kEnd);
    EXPECT_EQ("p10", Selected());
    EXPECT_EQ(2U, view.first);
    Press(Key::kDown);
    EXPECT_EQ("p10", Selected());
    Press(Key::kPageUp);
    EXPECT_EQ("p1", Selected());
    Press(Key::kPageDown);
    EXPECT_EQ("p10", Selected());
    Press(Key::kHome);
    EXPECT_EQ("p9", Selected());
    EXPECT_EQ(0U, view.first);
    // The selection stays with the port where others move.
    Press(Key::kEnd);
    Type("s");
    EXPECT_EQ("p10", Selected());
}

TEST_F(WatchViewTest, EnterLooksIntoAPortAndEscapeOrQGoesBack)
{
    for (const bool escapes : {true, false}) {
        Press(Key::kEnd);
        Type("p");
        EXPECT_TRUE(view.paused);
        Press(Key::kEnter);
        EXPECT_EQ("p10", view.inside);
        EXPECT_FALSE(view.paused);
        Type("s/");
        EXPECT_FALSE(view.filters);
        EXPECT_EQ(SortOrder::kName, view.order);
        if (escapes)
            Press(Key::kEscape);
        else
            Type("q");
        EXPECT_EQ("", view.inside);
        EXPECT_FALSE(view.left);
        EXPECT_EQ("p10", Selected());
    }
    Type("q");
    EXPECT_TRUE(view.left);
}

TEST_F(WatchViewTest, ThatBeganWithOnePortEndsWithIt)
{
    view.inside = "p1";
    view.beganInside = true;
    Press(Key::kEscape);
    EXPECT_FALSE(view.left);
    EXPECT_EQ("p1", view.inside);
    Type("q");
    EXPECT_TRUE(view.left);
}

TEST_F(WatchViewTest, InterruptEndsItFromAnywhere)
{
    Type("/");
    Press(Key::kInterrupt);
    EXPECT_TRUE(view.left);
    view = {};
    Type("h");
    EXPECT_TRUE(view.helps);
    Press(Key::kOther);
    EXPECT_TRUE(view.helps);
    Press(Key::kInterrupt);
    EXPECT_TRUE(view.left);
}

TEST_F(WatchViewTest, AnyKeyEndsTheHelpAndDoesNoMore)
{
    Type("?");
    EXPECT_TRUE(view.helps);
    Type("q");
    EXPECT_FALSE(view.helps);
    EXPECT_FALSE(view.left);
}

TEST_F(WatchViewTest, WithoutRowsNothingIsSelected)
{
    watched.entries.clear();
    for (const Key key :
         {Key::kUp, Key::kDown, Key::kPageUp, Key::kPageDown, Key::kHome, Key::kEnd, Key::kEnter})
        Press(key);
    EXPECT_EQ("", view.selected);
    EXPECT_EQ("", view.inside);
}

}  // namespace
