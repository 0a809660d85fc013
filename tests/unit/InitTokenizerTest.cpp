// SPDX-License-Identifier: Apache-2.0
#include "support/init/InitTokenizer.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace korvane::test {
namespace {

using Words = std::vector<std::string>;

// The words of a text that is one line of them.
Words wordsOf(const std::string& text) {
    const std::vector<InitLine> lines = tokenizeInit(text);
    EXPECT_EQ(1u, lines.size()) << text;
    return lines.empty() ? Words() : lines[0].words;
}

std::string errorOf(const std::string& text) {
    try {
        tokenizeInit(text);
    } catch (const InitError& error) {
        return error.what();
    }
    return "none";
}

TEST(InitTokenizerTest, EndsAWordAtABlankATabOrALineFeed) {
    EXPECT_EQ((Words{"write", "/a", "1"}), wordsOf("  write\t /a 1 \n"));
    EXPECT_EQ((Words{"a"}), wordsOf("a"));
}

TEST(InitTokenizerTest, GivesTheLinesThatHoldWordsWithTheirNumbers) {
    const std::vector<InitLine> lines = tokenizeInit("\n  a b\n# c\n \t\nd\n");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(2, lines[0].number);
    EXPECT_EQ((Words{"a", "b"}), lines[0].words);
    EXPECT_EQ(5, lines[1].number);
    EXPECT_EQ((Words{"d"}), lines[1].words);
    EXPECT_TRUE(tokenizeInit("").empty());
}

TEST(InitTokenizerTest, CopiesWhatIsQuotedAsItStandsTheBackslashToo) {
    EXPECT_EQ((Words{"333333\\n666666\\n"}), wordsOf("\"333333\\n666666\\n\""));
    EXPECT_EQ((Words{"a b\t#\nc"}), wordsOf("\"a b\t#\nc\""));
    EXPECT_EQ((Words{"\\"}), wordsOf("\"\\\""));
}

TEST(InitTokenizerTest, TakesQuotesAsAPartOfTheirWord) {
    EXPECT_EQ((Words{"ab cd", "e"}), wordsOf("a\"b c\"d e"));
    EXPECT_EQ((Words{"", "a"}), wordsOf("\"\" a"));
}

TEST(InitTokenizerTest, KnowsEscapesOutsideOfQuotes) {
    EXPECT_EQ((Words{"333333\n666666\n"}), wordsOf("333333\\n666666\\n"));
    EXPECT_EQ((Words{"\r\t\\"}), wordsOf("\\r\\t\\\\"));
    EXPECT_EQ((Words{"a b"}), wordsOf("a\\ b"));
    EXPECT_EQ((Words{"x#\"$"}), wordsOf("\\x\\#\\\"\\$"));
    EXPECT_EQ((Words{"\n"}), wordsOf("\\n\n"));
}

TEST(InitTokenizerTest, BeginsACommentOnlyWhereAWordMayBegin) {
    EXPECT_EQ((Words{"a"}), wordsOf("a # b \"c"));
    EXPECT_EQ((Words{"a#b", "c"}), wordsOf("a#b c"));
    EXPECT_EQ((Words{"#"}), wordsOf("\"#\""));
    EXPECT_TRUE(tokenizeInit("# a\n#b").empty());
}

TEST(InitTokenizerTest, ContinuesALineAfterABackslash) {
    EXPECT_EQ((Words{"a", "b"}), wordsOf("a \\\n    b\n"));
    EXPECT_EQ((Words{"ab"}), wordsOf("a\\\nb\n"));
    EXPECT_EQ((Words{"a"}), wordsOf("a \\\n\n"));
    const std::vector<InitLine> lines = tokenizeInit("a \\\n b\nc");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(1, lines[0].number);
    EXPECT_EQ(3, lines[1].number);
}

TEST(InitTokenizerTest, RefusesAQuoteThatDoesNotEnd) {
    EXPECT_EQ("line 2: a quote that doesn't end", errorOf("a\nb \"c\nd\n"));
}

TEST(InitTokenizerTest, RefusesWhatIsNotKnownToMeanTheSameEverywhere) {
    EXPECT_EQ("line 1: a carriage return", errorOf("a\r\n"));
    EXPECT_EQ("line 1: a carriage return", errorOf("a \\\r\n"));
    EXPECT_EQ("line 2: blanks after a word's continuation", errorOf("a\\\n b"));
    EXPECT_EQ("line 1: nothing after a backslash", errorOf("a\\"));
}

}  // namespace
}  // namespace korvane::test
