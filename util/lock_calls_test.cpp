// When the locks of this folder enter and leave their critical sections, and what is done meanwhile.
#include "tests/support/import_seam.h"
#include "util/mutex.h"
#include "util/object_map.h"

#include <windows.h>

#include <functional>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

MG_IMPORT_SEAM(L"kernel32.dll", EnterCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", LeaveCriticalSection, 0)

namespace {

// A key that tells of its end.
struct MortalKey {
  explicit MortalKey(std::size_t characters) : size(characters) {}
  MortalKey(const MortalKey&) = default;
  ~MortalKey() {
    if (whenGone) whenGone();
  }
  std::size_t length() const { return size; }
  bool operator==(const MortalKey& other) const { return size == other.size; }

  std::size_t size;
  static inline std::function<void()> whenGone;
};

using MortalMap = TObjectMap<MortalKey, int*>;

// How often the critical sections inside an object are entered and left.
class LockCallsTest : public testing::Test {
 protected:
  template <typename Object>
  void watch(const Object& object) {
    const auto* const first = reinterpret_cast<const char*>(&object);
    const auto isInside = [first](const void* section) {
      const auto* const at = static_cast<const char*>(section);
      return std::greater_equal<>()(at, first) && std::less<>()(at, first + sizeof(Object));
    };
    m_entered = m_left = 0;
    EnterCriticalSectionSeam.watch = [this, isInside](LPCRITICAL_SECTION section) {
      if (!isInside(section)) return;
      ++m_entered;
      if (m_onEnter) std::exchange(m_onEnter, nullptr)();
    };
    LeaveCriticalSectionSeam.watch = [this, isInside](LPCRITICAL_SECTION section) {
      if (!isInside(section)) return;
      ++m_left;
      if (m_onLeave) std::exchange(m_onLeave, nullptr)();
    };
  }

  ImportSeams m_seams;
  int m_entered = 0;
  int m_left = 0;
  std::function<void()> m_onEnter;
  std::function<void()> m_onLeave;
};

TEST_F(LockCallsTest, EveryOperationOfAMapHoldsTheTableLockOnce) {
  const std::vector<std::pair<const char*, std::function<void(MortalMap&)>>> operations = {
      {"insert", [](MortalMap& map) { map.insert(MortalKey(2), nullptr); }},
      {"find", [](MortalMap& map) { map.find(MortalKey(1)); }},
      {"remove", [](MortalMap& map) { map.remove(MortalKey(1), nullptr); }},
      {"count", [](MortalMap& map) { map.count(); }},
      {"bucketCount", [](MortalMap& map) { map.bucketCount(); }},
      {"setBucketCount", [](MortalMap& map) { map.setBucketCount(16); }},
      {"clear", [](MortalMap& map) { map.clear(); }}};
  for (const auto& [name, call] : operations) {
    MortalMap map;
    map.insert(MortalKey(1), nullptr);
    watch(map);
    call(map);
    EXPECT_EQ(m_entered, 1) << name;
    EXPECT_EQ(m_left, 1) << name;
    EnterCriticalSectionSeam.restore();
    LeaveCriticalSectionSeam.restore();
  }
}

TEST_F(LockCallsTest, AMapForgetsItsEntriesWithTheTableLockHeld) {
  MortalMap map;
  map.insert(MortalKey(1), nullptr);
  watch(map);
  std::vector<bool> held;
  MortalKey::whenGone = [&] { held.push_back(m_entered == 1 && m_left == 0); };
  map.clear();
  MortalKey::whenGone = nullptr;
  EXPECT_EQ(held, std::vector<bool>{true});
}

// A lock counts as held from when it is, and no longer than it is: a caller who asks in between would give back what is
// not his.
TEST_F(LockCallsTest, AMutexCountsAHoldAfterItHasItAndNoLongerBeforeItGivesItBack) {
  Mutex mutex;
  watch(mutex);
  m_onEnter = [&] { EXPECT_EQ(mutex.unlock(), 0) << "not entered yet"; };
  mutex.lock();
  m_onLeave = [&] { EXPECT_EQ(mutex.unlock(), 0) << "about to leave"; };
  EXPECT_EQ(mutex.unlock(), 1);
}

}  // namespace
