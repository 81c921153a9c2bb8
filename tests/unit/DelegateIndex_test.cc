// The index behind event dispatch, including keys that more than one entry shares.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "DelegateIndex.h"

namespace {

using Entries = std::list<std::string>;
using Index = rpc_port::AgentProxy::DelegateIndex<Entries::iterator>;

class DelegateIndexTest : public ::testing::Test {
 protected:
  Entries::iterator Add(int id, int seqId, const std::string &name) {
    entries.push_back(name);
    auto position = std::prev(entries.end());
    index.Add(id, seqId, position);
    return position;
  }

  std::string Find(int id, int seqId) const {
    const Entries::iterator *found = index.Find(id, seqId);
    return found == nullptr ? "none" : **found;
  }

  Entries entries;
  Index index;
};

TEST_F(DelegateIndexTest, FindsByIdAndSequenceTogether) {
  Add(5, 1, "a");
  Add(5, 2, "b");
  Add(6, 1, "c");
  EXPECT_EQ(Find(5, 1), "a");
  EXPECT_EQ(Find(5, 2), "b");
  EXPECT_EQ(Find(6, 1), "c");
  EXPECT_EQ(Find(6, 2), "none");
  EXPECT_EQ(Find(1, 5), "none");
  EXPECT_EQ(index.Size(), 3U);
}

TEST_F(DelegateIndexTest, NegativeAndExtremeValuesAreDistinctKeys) {
  Add(-1, 0, "a");
  Add(0, -1, "b");
  Add(2147483647, -2147483647 - 1, "c");
  EXPECT_EQ(Find(-1, 0), "a");
  EXPECT_EQ(Find(0, -1), "b");
  EXPECT_EQ(Find(2147483647, -2147483647 - 1), "c");
  EXPECT_EQ(Find(-1, -1), "none");
}

TEST_F(DelegateIndexTest, SharedKeyAnswersTheEarliestAddedEntry) {
  auto first = Add(5, 1, "first");
  auto second = Add(5, 1, "second");
  auto third = Add(5, 1, "third");
  EXPECT_EQ(Find(5, 1), "first");
  index.Remove(5, 1, second);
  EXPECT_EQ(Find(5, 1), "first");
  index.Remove(5, 1, first);
  EXPECT_EQ(Find(5, 1), "third");
  index.Remove(5, 1, third);
  EXPECT_EQ(Find(5, 1), "none");
  EXPECT_EQ(index.Size(), 0U);
}

TEST_F(DelegateIndexTest, RemovingTheFirstOfASharedKeyPromotesTheNext) {
  auto first = Add(5, 1, "first");
  Add(5, 1, "second");
  Add(5, 1, "third");
  index.Remove(5, 1, first);
  EXPECT_EQ(Find(5, 1), "second");
}

TEST_F(DelegateIndexTest, RemovingAnUnknownPositionOrKeyChangesNothing) {
  auto kept = Add(5, 1, "kept");
  auto other = Add(6, 1, "other");
  index.Remove(5, 1, other);
  index.Remove(7, 7, kept);
  EXPECT_EQ(Find(5, 1), "kept");
  EXPECT_EQ(Find(6, 1), "other");
}

TEST_F(DelegateIndexTest, ClearForgetsEverything) {
  Add(5, 1, "a");
  Add(5, 1, "b");
  index.Clear();
  EXPECT_EQ(Find(5, 1), "none");
  EXPECT_EQ(index.Size(), 0U);
}

}  // namespace
