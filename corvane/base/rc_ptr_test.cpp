#include "corvane/base/rc_ptr.h"

#include <gtest/gtest.h>

namespace {

struct Counted {
  int addRef() {
    ++added;
    return references.add();
  }
  int removeRef() {
    ++removed;
    return references.remove();
  }
  corvane::RefCount references;
  int added = 0;
  int removed = 0;
};

TEST(RCPtr, TakesAndGivesBackOneReference) {
  Counted object;
  {
    CS_RCPtr<Counted> holder(&object);
    EXPECT_EQ(1, object.added);
    EXPECT_EQ(0, object.removed);
  }
  EXPECT_EQ(1, object.removed);
}

TEST(RCPtr, AssigningTheHeldPointerChangesNothing) {
  Counted object;
  CS_RCPtr<Counted> holder(&object);
  holder = &object;
  EXPECT_EQ(1, object.added);
  EXPECT_EQ(0, object.removed);
}

TEST(RCPtr, AssignmentReleasesTheOldObjectAndHoldsTheNewOne) {
  Counted first;
  Counted second;
  CS_RCPtr<Counted> keeper(&first);
  CS_RCPtr<Counted> holder(&first);
  holder = &second;
  EXPECT_EQ(1, first.removed);
  EXPECT_EQ(1, second.added);
  EXPECT_EQ(&second, holder.get());
}

TEST(RCPtr, BecomesNullWhenTheObjectIsAlreadyBeingDestroyed) {
  Counted object;
  { CS_RCPtr<Counted> last(&object); }
  CS_RCPtr<Counted> late(&object);
  EXPECT_EQ(nullptr, late.get());
}

TEST(RCPtr, CopiesFollowTheSameRuleAndMovesTakeOver) {
  Counted object;
  CS_RCPtr<Counted> first(&object);
  CS_RCPtr<Counted> copy(first);
  EXPECT_EQ(2, object.added);
  CS_RCPtr<Counted> moved(std::move(copy));
  EXPECT_EQ(2, object.added);
  EXPECT_EQ(nullptr, copy.get());  // NOLINT(bugprone-use-after-move): it holds nothing any more
}

TEST(RefCount, AnswersZeroOnlyOnceAndNeverCountsUpAgain) {
  corvane::RefCount count;
  EXPECT_EQ(1, count.add());
  EXPECT_EQ(2, count.add());
  EXPECT_EQ(1, count.remove());
  EXPECT_EQ(0, count.remove());
  EXPECT_EQ(0, count.add());
  EXPECT_EQ(-1, count.remove());
}

}  // namespace
