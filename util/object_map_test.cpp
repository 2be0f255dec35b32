#include "util/object_map.h"

#include "tests/support/failing_new.h"
#include "util/utl_string.h"

#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Map = TObjectMap<UTL_String, int*>;

UTL_String textOfLength(std::size_t length) {
  return UTL_String(std::wstring(length, L'x').c_str());
}

std::vector<std::wstring> keysOf(const Map& map) {
  std::vector<std::wstring> keys;
  for (const auto& [key, value] : map)
    keys.emplace_back(key.wide());
  return keys;
}

// A key whose copies and comparisons can be made to fail.
struct FragileKey {
  explicit FragileKey(std::size_t characters) : size(characters) {}
  FragileKey(const FragileKey& other) : size(other.size) {
    if (failCopies) throw std::bad_alloc();
  }
  std::size_t length() const { return size; }
  bool operator==(const FragileKey& other) const {
    if (failComparisons) throw std::bad_alloc();
    return size == other.size;
  }

  std::size_t size;
  static inline bool failCopies = false;
  static inline bool failComparisons = false;
};

}  // namespace

TEST(ObjectMap, IsEmptyWithEightBucketsWhenNew) {
  const Map map;
  EXPECT_EQ(map.count(), 0U);
  EXPECT_EQ(map.bucketCount(), 8U);
  EXPECT_EQ(map.begin(), map.end());
}

TEST(ObjectMap, TellsTwoNamesOfEqualLengthApart) {
  int one = 1;
  int two = 2;
  Map map;
  EXPECT_TRUE(map.insert(UTL_String(L"CPP1"), &one));
  EXPECT_TRUE(map.insert(UTL_String(L"CPP2"), &two));
  int* found = nullptr;
  EXPECT_TRUE(map.find(UTL_String(L"CPP1"), &found));
  EXPECT_EQ(found, &one);
  EXPECT_TRUE(map.find(UTL_String(L"CPP2"), &found));
  EXPECT_EQ(found, &two);
  EXPECT_TRUE(map.find(UTL_String(L"CPP2")));
}

TEST(ObjectMap, TakesKeysThatDifferOnlyInCaseAsDifferent) {
  int value = 0;
  Map map;
  map.insert(UTL_String(L"CPP1"), &value);
  EXPECT_FALSE(map.find(UTL_String(L"cpp1")));
  map.insert(UTL_String(L"cpp1"), &value);
  EXPECT_EQ(map.count(), 2U);
}

TEST(ObjectMap, OverwritesTheValueOfAnExistingKey) {
  int one = 1;
  int two = 2;
  Map map;
  map.insert(UTL_String(L"CPP1"), &one);
  EXPECT_TRUE(map.insert(UTL_String(L"CPP1"), &two));
  EXPECT_EQ(map.count(), 1U);
  int* found = nullptr;
  map.find(UTL_String(L"CPP1"), &found);
  EXPECT_EQ(found, &two);
}

TEST(ObjectMap, KeepsItsOwnCopyOfTheKey) {
  int value = 0;
  Map map;
  UTL_String key(L"CPP1");
  map.insert(key, &value);
  key = L"CPP2";
  EXPECT_TRUE(map.find(UTL_String(L"CPP1")));
  EXPECT_FALSE(map.find(key));
}

TEST(ObjectMap, CopiesNoKeyThatIsGivenAway) {
  int value = 0;
  Map map;
  UTL_String key(L"a name that is too long to stand in the text itself");
  const void* const characters = key.wide();
  EXPECT_TRUE(map.insert(std::move(key), &value));
  EXPECT_EQ(map.begin()->first.wide(), characters);
}

TEST(ObjectMap, FindsAnEmptyKey) {
  int value = 0;
  Map map;
  EXPECT_TRUE(map.insert(UTL_String(), &value));
  EXPECT_TRUE(map.find(UTL_String(L"")));
}

TEST(ObjectMap, HandsTheValueOutWhenItRemovesAnEntry) {
  int value = 0;
  int* removed = nullptr;
  Map map;
  map.insert(UTL_String(L"CPP1"), &value);
  EXPECT_TRUE(map.remove(UTL_String(L"CPP1"), &removed));
  EXPECT_EQ(removed, &value);
  EXPECT_EQ(map.count(), 0U);
  EXPECT_FALSE(map.find(UTL_String(L"CPP1")));
}

TEST(ObjectMap, ReturnsFalseAndLeavesTheOutValueAloneForAnAbsentKey) {
  int value = 0;
  int* out = &value;
  Map map;
  EXPECT_FALSE(map.remove(UTL_String(L"CPP1"), &out));
  EXPECT_FALSE(map.find(UTL_String(L"CPP1"), &out));
  EXPECT_EQ(out, &value);
}

TEST(ObjectMap, GrowsFromEightToSixtyFourBucketsWithTheThirtyThirdEntry) {
  int value = 0;
  Map map;
  for (std::size_t length = 0; length < 32; ++length)
    map.insert(textOfLength(length), &value);
  EXPECT_EQ(map.bucketCount(), 8U);
  map.insert(textOfLength(32), &value);
  EXPECT_EQ(map.bucketCount(), 64U);
  EXPECT_EQ(map.count(), 33U);
  for (std::size_t length = 0; length < 33; ++length)
    EXPECT_TRUE(map.find(textOfLength(length))) << length;
}

TEST(ObjectMap, GrowsEightfoldAgainWithTheNextEntryThatIsTooMany) {
  int value = 0;
  Map map;
  for (std::size_t length = 0; length < 256; ++length)
    map.insert(textOfLength(length), &value);
  EXPECT_EQ(map.bucketCount(), 64U);
  map.insert(textOfLength(256), &value);
  EXPECT_EQ(map.bucketCount(), 512U);
  EXPECT_EQ(map.count(), 257U);
}

TEST(ObjectMap, NeedsNoPlaceForTheValueThatItRemoves) {
  int value = 0;
  Map map;
  map.insert(UTL_String(L"CPP1"), &value);
  EXPECT_TRUE(map.remove(UTL_String(L"CPP1"), nullptr));
}

TEST(ObjectMap, RoundsABucketRequestUpToAPowerOfTwoFromEightUpward) {
  EXPECT_EQ(Map(20).bucketCount(), 32U);
  Map map;
  map.setBucketCount(0);
  EXPECT_EQ(map.bucketCount(), 8U);
  map.setBucketCount(32);
  EXPECT_EQ(map.bucketCount(), 32U);
  map.setBucketCount(33);
  EXPECT_EQ(map.bucketCount(), 64U);
}

TEST(ObjectMap, KeepsEnoughBucketsForItsEntriesWhateverIsRequested) {
  int value = 0;
  Map map;
  for (std::size_t length = 0; length < 33; ++length)
    map.insert(textOfLength(length), &value);
  map.setBucketCount(8);
  EXPECT_EQ(map.bucketCount(), 16U);
  for (std::size_t length = 0; length < 33; ++length)
    EXPECT_TRUE(map.find(textOfLength(length))) << length;
}

TEST(ObjectMap, RefusesABucketRequestThatNoTableCouldReach) {
  Map map(20);
  try {
    map.setBucketCount(std::numeric_limits<std::size_t>::max());
    FAIL() << "the request was taken";
  } catch (const std::out_of_range& caught) {
    EXPECT_STREQ(caught.what(), "invalid hash bucket count");
  }
  EXPECT_EQ(map.bucketCount(), 32U);
  int value = 0;
  EXPECT_TRUE(map.insert(UTL_String(L"CPP1"), &value)) << "the lock was left held or the table broken";
}

TEST(ObjectMap, StaysAsItIsWhenThereIsNoMemoryForTheRequestedBuckets) {
  int value = 0;
  Map map;
  map.insert(UTL_String(L"CPP1"), &value);
  map.setBucketCount(std::size_t{1} << 50);
  EXPECT_EQ(map.bucketCount(), 8U);
  EXPECT_TRUE(map.find(UTL_String(L"CPP1")));
}

TEST(ObjectMap, ForgetsEverythingAndGoesBackToEightBucketsWhenCleared) {
  int value = 0;
  Map map(20);
  map.insert(UTL_String(L"CPP1"), &value);
  map.clear();
  EXPECT_EQ(map.count(), 0U);
  EXPECT_EQ(map.bucketCount(), 8U);
  EXPECT_FALSE(map.find(UTL_String(L"CPP1")));
  EXPECT_TRUE(map.insert(UTL_String(L"CPP1"), &value));
}

TEST(ObjectMap, WalksBucketAfterBucketAndInOrderOfInsertionWithinOne) {
  int value = 0;
  Map map;
  for (const wchar_t* name : {L"CPP12", L"CPP1", L"123456789", L"CPP2", L"x", L"", L"CPP34"}) {
    map.insert(UTL_String(name), &value);
  }
  const std::vector<std::wstring> expected = {L"", L"123456789", L"x", L"CPP1", L"CPP2", L"CPP12", L"CPP34"};
  EXPECT_EQ(keysOf(map), expected);
  map.setBucketCount(16);
  const std::vector<std::wstring> spread = {L"", L"x", L"CPP1", L"CPP2", L"CPP12", L"CPP34", L"123456789"};
  EXPECT_EQ(keysOf(map), spread);
}

TEST(ObjectMap, KeepsItsBucketsRightWhenEntriesLeaveFromTheFrontMiddleAndEnd) {
  int value = 0;
  int* out = nullptr;
  Map map;
  for (const wchar_t* name : {L"a", L"b", L"c", L"xx", L"dddd"})
    map.insert(UTL_String(name), &value);
  map.remove(UTL_String(L"a"), &out);
  EXPECT_EQ(keysOf(map), (std::vector<std::wstring>{L"b", L"c", L"xx", L"dddd"}));
  map.remove(UTL_String(L"c"), &out);
  map.remove(UTL_String(L"xx"), &out);
  EXPECT_EQ(keysOf(map), (std::vector<std::wstring>{L"b", L"dddd"}));
  map.remove(UTL_String(L"b"), &out);
  map.insert(UTL_String(L"yy"), &value);
  map.insert(UTL_String(L"e"), &value);
  EXPECT_EQ(keysOf(map), (std::vector<std::wstring>{L"e", L"yy", L"dddd"}));
  for (const wchar_t* name : {L"e", L"yy", L"dddd"})
    EXPECT_TRUE(map.find(UTL_String(name)));
}

// Some hundreds of names in one bucket, and what is left of them after every second one has gone and some came back.
TEST(ObjectMap, FindsEachOfManyNamesOfOneLengthWhateverHasGoneAndComeBack) {
  std::vector<int> values(900);
  const auto name = [](std::size_t i) { return UTL_String((L"CPP" + std::to_wstring(100 + i)).c_str()); };
  Map map(20);
  for (std::size_t i = 0; i < values.size(); ++i)
    ASSERT_TRUE(map.insert(name(i), &values[i]));
  int* out = nullptr;
  for (std::size_t i = 0; i < values.size(); i += 2) {
    ASSERT_TRUE(map.remove(name(i), &out));
    ASSERT_EQ(out, &values[i]);
    ASSERT_FALSE(map.remove(name(i), &out));
  }
  for (std::size_t i = 0; i < values.size(); i += 4)
    ASSERT_TRUE(map.insert(name(i), &values[i]));
  EXPECT_EQ(map.count(), 675U);
  for (std::size_t i = 0; i < values.size(); ++i) {
    out = nullptr;
    ASSERT_EQ(map.find(name(i), &out), i % 4 != 2) << i;
    ASSERT_EQ(out, i % 4 != 2 ? &values[i] : nullptr);
  }
  EXPECT_EQ(keysOf(map).front(), L"CPP101") << "the first one that has stayed";
  EXPECT_EQ(keysOf(map).back(), L"CPP996") << "the last one that came back";
}

// Through the growth at the 129th entry of a table of 32 buckets, with which it gets an index.
TEST(ObjectMap, WhicheverAllocationFailsWhatWentInIsFoundAndWhatDidNotIsNot) {
  const auto name = [](std::size_t i) { return UTL_String((L"CPP" + std::to_wstring(100 + i)).c_str()); };
  int value = 0, refused = 0;
  for (int nth = 1;; ++nth) {
    Map map(20);
    for (std::size_t i = 0; i < 125; ++i)
      ASSERT_TRUE(map.insert(name(i), &value));
    std::vector<UTL_String> names;
    for (std::size_t i = 125; i < 135; ++i)
      names.push_back(name(i));
    std::vector<bool> isIn;
    isIn.reserve(names.size());
    bool hasFailed = false;
    {
      const FailingNew failing(nth);
      for (const UTL_String& each : names)
        isIn.push_back(map.insert(each, &value));
      hasFailed = failing.hasFailed();
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
      ASSERT_EQ(map.find(names[i]), isIn[i]) << "name " << i << ", allocation " << nth;
      refused += isIn[i] ? 0 : 1;
    }
    for (std::size_t i = 0; i < 125; ++i)
      ASSERT_TRUE(map.find(name(i))) << "allocation " << nth;
    if (!hasFailed) break;
  }
  EXPECT_GT(refused, 10);
}

// Both are a question mark to the code page, and of one length.
TEST(ObjectMap, TakesTextsThatTheCodePageCannotTellApartAsOneKey) {
  int one = 1, two = 2;
  Map map;
  EXPECT_TRUE(map.insert(UTL_String(L"\xD800"), &one));
  EXPECT_TRUE(map.insert(UTL_String(L"\xD801"), &two));
  EXPECT_EQ(map.count(), 1U);
  int* out = nullptr;
  EXPECT_TRUE(map.find(UTL_String(L"\xD800"), &out));
  EXPECT_EQ(out, &two);
}

TEST(ObjectMap, TurnsAFailureInsideAnOperationIntoFalseAndStaysUnlocked) {
  int value = 0;
  int* out = nullptr;
  TObjectMap<FragileKey, int*> map;
  FragileKey::failCopies = true;
  EXPECT_FALSE(map.insert(FragileKey(1), &value));
  FragileKey::failCopies = false;
  EXPECT_EQ(map.count(), 0U);
  EXPECT_TRUE(map.insert(FragileKey(1), &value));
  FragileKey::failComparisons = true;
  EXPECT_FALSE(map.find(FragileKey(1)));
  EXPECT_FALSE(map.remove(FragileKey(1), &out));
  EXPECT_FALSE(map.insert(FragileKey(1), &value));
  FragileKey::failComparisons = false;
  bool found = false;
  std::thread([&] { found = map.find(FragileKey(1)); }).join();
  EXPECT_TRUE(found);
}

TEST(ObjectMap, CanBeDeletedAsWhatItStandsIn) {
  EXPECT_TRUE(std::has_virtual_destructor_v<Map>);
}

TEST(ObjectMap, LetsSeveralThreadsInsertAndRemoveAtOnce) {
  int value = 0;
  Map map;
  const auto work = [&](wchar_t initial) {
    for (int round = 0; round < 2000; ++round) {
      const UTL_String key((initial + std::to_wstring(round % 50)).c_str());
      int* out = nullptr;
      map.insert(key, &value);
      if (round % 3 == 0) map.remove(key, &out);
      map.count();
    }
  };
  std::jthread other(work, L'a');
  work(L'b');
  other.join();
  EXPECT_EQ(static_cast<std::size_t>(std::distance(map.begin(), map.end())), map.count());
}
