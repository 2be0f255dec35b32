#include "util/utl_exception.h"

#include <gtest/gtest.h>

TEST(UtlException, CarriesCodeZeroWhenNoneIsGiven) {
  EXPECT_EQ(UTL_Exception().code(), 0);
}

TEST(UtlException, KeepsItsCodeThroughThrowCopyAndAssignment) {
  try {
    throw UTL_Exception(mg::status::kNoMemory);
  } catch (const UTL_Exception& caught) {
    const UTL_Exception copy(caught);  // NOLINT(performance-unnecessary-copy-initialization): the copy is the question
    UTL_Exception assigned;
    assigned = copy;
    EXPECT_EQ(copy.code(), 3);
    EXPECT_EQ(assigned.code(), 3);
  }
}
