#include "util/atomic_val.h"

#include <gtest/gtest.h>

TEST(AtomicVal, CopiesTheValueOnAssignmentAndReturnsItsTarget) {
  mg::AtomicVal<long> first(7);
  mg::AtomicVal<long> second;
  EXPECT_EQ(second.get(), 0);
  EXPECT_EQ(&(second = first), &second);
  EXPECT_EQ(second.get(), 7);
  EXPECT_EQ(mg::AtomicVal<long>(second).get(), 7);
}

TEST(AtomicVal, HoldsAPointerInTheRoomOfAPointer) {
  int object = 0;
  const mg::AtomicVal<void*> first(&object);
  mg::AtomicVal<void*> second;
  EXPECT_EQ(second.get(), nullptr);
  second = first;
  EXPECT_EQ(second.get(), &object);
  EXPECT_EQ(sizeof second, sizeof(void*));
  EXPECT_EQ(sizeof(mg::AtomicVal<long>), 4U);
}
