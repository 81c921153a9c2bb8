// The owned text that carries addresses and names from a parcel to the application.
#include "Text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "NullStringError.h"

namespace {

using Oxa::Capi::Text;

char *mallocCopy(const char *text) {
  char *copy = static_cast<char *>(std::malloc(std::strlen(text) + 1));
  std::strcpy(copy, text);
  return copy;
}

TEST(TextTest, AnEmptyTextReadsAsTheEmptyString) {
  const Text empty;
  EXPECT_STREQ(empty.c_str(), "");
  EXPECT_EQ(empty.size(), 0U);
  EXPECT_TRUE(empty.empty());
}

TEST(TextTest, AdoptedBufferIsKeptAsItIs) {
  char *buffer = mallocCopy("AA:BB:CC:DD:EE:FF");
  const Text text = Text::adopt(buffer);
  EXPECT_EQ(text.c_str(), buffer);
  EXPECT_EQ(text.size(), 17U);
  EXPECT_FALSE(text.empty());
}

TEST(TextTest, AdoptingNullThrowsTheStandardLogicError) {
  try {
    Text::adopt(nullptr);
    ADD_FAILURE() << "no exception";
  } catch (const std::logic_error &error) {
    EXPECT_EQ(error.what(), oxa::test::nullStringError());
  }
}

TEST(TextTest, BuildingFromNullThrowsTheStandardLogicError) {
  const char *volatile none = nullptr;
  try {
    const Text text(none);
    ADD_FAILURE() << "no exception";
  } catch (const std::logic_error &error) {
    EXPECT_EQ(error.what(), oxa::test::nullStringError());
  }
}

TEST(TextTest, CopiesAreIndependent) {
  Text original = Text::adopt(mallocCopy("first"));
  const Text copy = original;
  EXPECT_NE(copy.c_str(), original.c_str());
  original = Text("second");
  EXPECT_EQ(copy, "first");
  EXPECT_EQ(original, "second");
}

TEST(TextTest, MovingHandsTheBufferOver) {
  Text source = Text::adopt(mallocCopy("moved"));
  const char *buffer = source.c_str();
  Text target(std::move(source));
  EXPECT_EQ(target.c_str(), buffer);
  Text other("other");
  other = std::move(target);
  EXPECT_EQ(other.c_str(), buffer);
}

TEST(TextTest, ComparesWithEveryKindOfString) {
  const Text text("tv");
  EXPECT_TRUE(text == "tv");
  EXPECT_TRUE("tv" == text);
  EXPECT_TRUE(text == std::string("tv"));
  EXPECT_TRUE(std::string_view("tv") == text);
  EXPECT_TRUE(text == Text("tv"));
  EXPECT_TRUE(text != "t");
  EXPECT_TRUE(text != Text("tv2"));
  EXPECT_EQ(text.str(), std::string("tv"));
}

TEST(TextTest, TakesOnlyTheCharactersOfAView) {
  const Text text(std::string_view("abcdef", 3));
  EXPECT_STREQ(text.c_str(), "abc");
}

TEST(TextTest, PrintsItsCharacters) {
  std::ostringstream out;
  out << Text("name");
  EXPECT_EQ(out.str(), "name");
}

}  // namespace
