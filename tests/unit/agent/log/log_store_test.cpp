// SPDX-License-Identifier: Apache-2.0
#include "agent/log/log_store.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using agent::LogLine;
using agent::LogStore;
using testing::ElementsAre;
using testing::IsEmpty;

LogLine Line(std::int64_t time, const std::string& process, const std::string& text)
{
    return {time, process, 12, "src/a:B:1", text};
}

std::vector<std::string> Texts(const LogStore& store, std::size_t lines, std::string_view process = {})
{
    std::vector<std::string> texts;
    for (const LogLine& line : store.Last(lines, process)) texts.push_back(line.text);
    return texts;
}

TEST(LogStore, AnswersTheLastLinesInTheOrderOfTheirTimes)
{
    LogStore store;
    store.Take(Line(30, "b", "third"));
    store.Take(Line(10, "a", "first"));
    store.Take(Line(40, "a", "fourth"));
    store.Take(Line(20, "a", "second, come late"));
    EXPECT_THAT(Texts(store, 10), ElementsAre("first", "second, come late", "third", "fourth"));
    EXPECT_THAT(Texts(store, 2), ElementsAre("third", "fourth"));
    EXPECT_THAT(Texts(store, 10, "b"), ElementsAre("third"));
    EXPECT_THAT(Texts(store, 10, "c"), IsEmpty());
}

TEST(LogStore, LeavesLinesOfOneTimeInTheirOrder)
{
    LogStore store;
    for (const char* text : {"one", "two", "three"}) store.Take(Line(5, "a", text));
    EXPECT_THAT(Texts(store, 10), ElementsAre("one", "two", "three"));
    EXPECT_THAT(Texts(store, 2), ElementsAre("two", "three"));
}

TEST(LogStore, KeepsTheLinesOfOneProcessFromThoseOfAnother)
{
    LogStore store({.lines = 3, .bytes = 1 << 20, .processes = 8});
    store.Take(Line(1, "quiet", "kept"));
    for (int i = 0; i < 100; ++i) store.Take(Line(2 + i, "loud", std::to_string(i)));
    EXPECT_THAT(Texts(store, 1000), ElementsAre("kept", "97", "98", "99"));
}

TEST(LogStore, BoundsTheBytesOfAProcess)
{
    constexpr std::size_t kBytes = 10'000;
    LogStore store({.lines = 1000, .bytes = kBytes, .processes = 8});
    for (int i = 0; i < 50; ++i) store.Take(Line(i, "a", std::string(1000, 'x')));
    std::size_t bytes = 0;
    for (const LogLine& line : store.Last(1000)) bytes += line.text.size();
    EXPECT_LE(bytes, kBytes);
    EXPECT_GE(bytes, kBytes / 2);
}

TEST(LogStore, BoundsTheProcessesAndStillAnswersByName)
{
    LogStore store({.lines = 2, .bytes = 1 << 20, .processes = 2});
    for (const char* name : {"a", "b", "c", "d", "e"}) store.Take(Line(1, name, name));
    EXPECT_THAT(Texts(store, 1000), testing::UnorderedElementsAre("a", "b", "d", "e"));
    EXPECT_THAT(Texts(store, 1000, "e"), ElementsAre("e"));
}

}  // namespace
