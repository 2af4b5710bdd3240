// The script help against the interpreter: the help printed by the render
// driver ("?" as the script) names exactly the words the interpreter runs.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "Orvex_internal/orvextxt.h"

namespace {

// The first word of each command line of the help ("  word args").
std::set<std::string> helpWords() {
  testing::internal::CaptureStdout();
  int result = generateFontImages("?", "", 0);
  std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, 0);
  std::set<std::string> words;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 2, "  ") != 0) continue;
    std::istringstream fields(line);
    std::string word;
    fields >> word;
    words.insert(word);
  }
  return words;
}

TEST(ScriptHelp, EveryHelpWordRunsAndEveryCommandIsInTheHelp) {
  std::set<std::string> words = helpWords();
  ASSERT_GT(words.size(), 80u);
  for (const std::string& w : words)
    EXPECT_TRUE(isScriptCommand(w.c_str())) << w << " is in the help";
  int count = 0;
  for (const char* w; (w = scriptCommandWord(count)) != nullptr; count++)
    EXPECT_EQ(words.count(w), 1u) << w << " is missing from the help";
  EXPECT_EQ((size_t)count, words.size());
}

TEST(ScriptHelp, WordsBeyondTheTableAreNotCommandsButShowPrefixesAre) {
  EXPECT_FALSE(isScriptCommand("hinting"));  // an old help's name for hints
  EXPECT_FALSE(isScriptCommand("Show"));  // words are case-sensitive
  EXPECT_TRUE(isScriptCommand("showanything"));  // any word beginning with show draws
}

}  // namespace
