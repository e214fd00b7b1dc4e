// SPDX-License-Identifier: Apache-2.0
// Framing in both forms: whatever way the bytes arrive, and what breaks it.

#include "netconf/framing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using netconf::Framing;
using netconf::MessageReader;

struct Outcome {
    std::vector<std::string> messages;
    std::string problem;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    for (const std::string& message : outcome.messages) out << "[" << message << "] ";
    return out << "problem: " << outcome.problem;
}

/// Feeds the bytes in pieces of that many.
Outcome Read(Framing framing, const std::string& bytes, std::size_t piece, std::size_t limit = 100)
{
    MessageReader reader(limit);
    reader.SetFraming(framing);
    Outcome outcome;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        reader.Append(std::string_view(bytes).substr(at, piece));
        while (auto message = reader.Next()) outcome.messages.push_back(*message);
    }
    outcome.problem = reader.Problem();
    return outcome;
}

struct Case {
    const char* name;
    Framing framing;
    std::string bytes;
    Outcome expected;
};

class FramingTest : public testing::TestWithParam<Case> {};

TEST_P(FramingTest, GivesTheSameHoweverTheBytesArrive)
{
    const Case& param = GetParam();
    for (std::size_t piece = 1; piece <= param.bytes.size(); ++piece)
        EXPECT_EQ(Read(param.framing, param.bytes, piece), param.expected) << "in pieces of " << piece;
}

const std::string kSize = "a chunk's size is no number from 1 to 4294967295";
const std::string kBegin = "a chunk does not begin with a line feed and '#'";
const std::string kLong = "the message is longer than 100 bytes; send it in parts";

INSTANTIATE_TEST_SUITE_P(
    Table, FramingTest,
    testing::Values(
        Case{"OneMarked", Framing::kEndOfMessage, "<a/>]]>]]>", {{"<a/>"}, ""}},
        Case{"TwoMarked", Framing::kEndOfMessage, "<a/>]]>]]>\n<b/>]]>]]>", {{"<a/>", "\n<b/>"}, ""}},
        Case{"MarkedUnfinished", Framing::kEndOfMessage, "<a/>]]>]]>]]>]]", {{"<a/>"}, ""}},
        Case{"MarkAfterBrackets", Framing::kEndOfMessage, "]]>]]]]>]]>", {{"]]>]]"}, ""}},
        Case{"MarkedEmpty", Framing::kEndOfMessage, "]]>]]>", {{""}, ""}},
        Case{"MarkedTooLong", Framing::kEndOfMessage, std::string(200, 'x'), {{}, kLong}},
        Case{"OneChunk", Framing::kChunked, "\n#4\n<a/>\n##\n", {{"<a/>"}, ""}},
        Case{"SomeChunks", Framing::kChunked, "\n#1\n<\n#2\na/\n#1\n>\n##\n", {{"<a/>"}, ""}},
        Case{"TwoChunked", Framing::kChunked, "\n#4\n<a/>\n##\n\n#4\n<b/>\n##\n", {{"<a/>", "<b/>"}, ""}},
        Case{"MarksInAChunk", Framing::kChunked, "\n#10\n\n##\n]]>]]>\n##\n", {{"\n##\n]]>]]>"}, ""}},
        Case{"UnfinishedChunk", Framing::kChunked, "\n#5\n<a/>", {{}, ""}},
        Case{"NoChunk", Framing::kChunked, "\n##\n", {{}, "a message has no chunk"}},
        Case{"SizeZero", Framing::kChunked, "\n#0\n\n##\n", {{}, kSize}},
        Case{"LeadingZero", Framing::kChunked, "\n#04\n<a/>\n##\n", {{}, kSize}},
        Case{"NegativeSize", Framing::kChunked, "\n#-4\n<a/>\n##\n", {{}, kSize}},
        Case{"HugeSize", Framing::kChunked, "\n#99999999999\n", {{}, kSize}},
        Case{"WordForSize", Framing::kChunked, "\n#four\n<a/>\n##\n", {{}, kSize}},
        Case{"NoLineFeedFirst", Framing::kChunked, "#4\n<a/>\n##\n", {{}, kBegin}},
        Case{"Marked", Framing::kChunked, "<a/>]]>]]>", {{}, kBegin}},
        Case{"RubbishBehind", Framing::kChunked, "\n#4\n<a/>\n##\nx", {{"<a/>"}, kBegin}},
        Case{"SizeAndMore",
             Framing::kChunked,
             "\n#4 \n<a/>",
             {{}, "a chunk's size is not followed by a line feed"}},
        Case{"HalfAnEnd", Framing::kChunked, "\n#4\n<a/>\n##x", {{}, "'##' is not followed by a line feed"}},
        Case{"ChunkTooLong", Framing::kChunked, "\n#101\n", {{}, kLong}},
        Case{"ChunksTooLong", Framing::kChunked, "\n#1\nx\n#100\n", {{}, kLong}}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Framing, ReadsNothingBehindABrokenFrame)
{
    MessageReader reader;
    reader.SetFraming(Framing::kChunked);
    reader.Append("\n#x\n");
    EXPECT_EQ(reader.Next(), std::nullopt);
    reader.Append("\n#4\n<a/>\n##\n");
    EXPECT_EQ(reader.Next(), std::nullopt);
    EXPECT_EQ(reader.Problem(), kSize);
}

TEST(Framing, ChangesBehindTheLastMessageTaken)
{
    MessageReader reader;
    reader.Append("<hello/>]]>]]>\n#4\n<a/>\n##\n");
    EXPECT_EQ(reader.Next(), "<hello/>");
    reader.SetFraming(Framing::kChunked);
    EXPECT_EQ(reader.Next(), "<a/>");
    EXPECT_EQ(reader.Next(), std::nullopt);
}

TEST(Framing, TakesAMessageOfExactlyTheLimit)
{
    const std::string text(100, 'x');
    EXPECT_EQ(Read(Framing::kEndOfMessage, text + "]]>]]>", 7), (Outcome{{text}, ""}));
    EXPECT_EQ(Read(Framing::kChunked, "\n#100\n" + text + "\n##\n", 7), (Outcome{{text}, ""}));
}

TEST(Framing, ReadsWhatItFrames)
{
    for (const Framing framing : {Framing::kEndOfMessage, Framing::kChunked}) {
        const std::string bytes =
            netconf::FrameHeader(framing, 4) + "<a/>" + std::string(netconf::FrameTrailer(framing));
        EXPECT_EQ(Read(framing, bytes, 3), (Outcome{{"<a/>"}, ""}));
    }
}

}  // namespace
