#include "tests/support/guarded_heap.h"

#include "tests/support/failing_new.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <thread>

namespace {

// While it lives, a faulting access of this thread is counted and its page made accessible, so that the access goes on.
class FaultCounter {
 public:
  FaultCounter() {
    s_count = 0;
    m_handler = AddVectoredExceptionHandler(1, onException);
  }
  ~FaultCounter() { RemoveVectoredExceptionHandler(m_handler); }
  FaultCounter(const FaultCounter&) = delete;
  FaultCounter& operator=(const FaultCounter&) = delete;
  int count() const { return s_count; }

 private:
  static LONG WINAPI onException(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION)) return EXCEPTION_CONTINUE_SEARCH;
    ++s_count;
    VirtualAlloc(reinterpret_cast<void*>(record.ExceptionInformation[1]), 1, MEM_COMMIT, PAGE_READWRITE);
    return EXCEPTION_CONTINUE_EXECUTION;
  }
  static inline int s_count = 0;
  void* m_handler;
};

// Keeps the compiler from leaving out an allocation or an access.
template <class T>
T* opaque(T* pointer) {
  T* volatile hidden = pointer;
  return hidden;
}

TEST(GuardedHeap, AnAccessPastTheEndOfABlockFaults) {
  const FaultCounter faults;
  volatile char* block = opaque(new char[32]);
  block[31] = 1;
  EXPECT_EQ(faults.count(), 0);
  block[32] = 1;
  EXPECT_EQ(faults.count(), 1);
  delete[] block;
}

TEST(GuardedHeap, AReadPastTheEndOfALargeBlockFaults) {
  const FaultCounter faults;
  volatile char* block = opaque(new char[100000]);
  EXPECT_EQ(block[99999], static_cast<char>(0xCD));
  EXPECT_EQ(faults.count(), 0);
  [[maybe_unused]] const char beyond = block[100000];
  EXPECT_EQ(faults.count(), 1);
  delete[] block;
}

TEST(GuardedHeap, TheUseOfADeletedBlockFaultsAndItsAddressIsNotGivenOutAgain) {
  const FaultCounter faults;
  volatile char* block = opaque(new char[32]);
  delete[] block;
  volatile char* other = opaque(new char[32]);
  EXPECT_NE(block, other);
  EXPECT_EQ(faults.count(), 0);
  block[0] = 1;
  EXPECT_EQ(faults.count(), 1);
  delete[] other;
}

TEST(GuardedHeap, OnRequestAnAddressIsGivenOutAgainToABlockOfTheSameSize) {
  char* block = opaque(new char[32]);
  const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(block);
  const guarded_heap::Reuse reuse(block);
  char* other = opaque(new char[32]);
  EXPECT_NE(reinterpret_cast<std::uintptr_t>(other), address) << "it is not free";
  delete[] block;
  char* smaller = opaque(new char[31]);
  char* again = opaque(new char[32]);
  EXPECT_NE(reinterpret_cast<std::uintptr_t>(smaller), address);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(again), address);
  EXPECT_EQ(again[31], static_cast<char>(0xCD));
  delete[] smaller;
  delete[] again;
  delete[] other;
}

TEST(GuardedHeapDeathTest, AWriteIntoTheBytesBetweenABlockAndItsGuardIsSeenOnDelete) {
  EXPECT_DEATH(
      {
        volatile char* block = opaque(new char[30]);
        block[30] = 1;
        delete[] block;
      },
      "of 30 bytes, .* was written past its end");
}

TEST(GuardedHeapDeathTest, AWriteBeforeABlockIsSeenOnDelete) {
  EXPECT_DEATH(
      {
        volatile char* block = opaque(new char[16]);
        opaque(block)[-1] = 1;
        delete[] block;
      },
      "of 16 bytes, .* was written before its start");
}

TEST(GuardedHeapDeathTest, ASecondDeleteEndsTheProcess) {
  EXPECT_DEATH(
      {
        char* block = opaque(new char[16]);
        delete[] block;
        delete[] opaque(block);
      },
      "");
}

TEST(GuardedHeap, WhatIsLeftIsCountedExactly) {
  const guarded_heap::Mark mark;
  char* first = opaque(new char[10]);
  char* second = opaque(new char[20]);
  char* third = opaque(new char[30]);
  delete[] second;
  EXPECT_EQ(mark.countLeft(), 2u);
  {
    const std::vector<guarded_heap::Block> left = mark.left();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0].address, first);
    EXPECT_EQ(left[0].size, 10u);
    EXPECT_EQ(left[1].address, third);
    EXPECT_NE(guarded_heap::describe(left).find("30 bytes: 0x14"), std::string::npos);
  }
  delete[] first;
  delete[] third;
  EXPECT_EQ(mark.countLeft(), 0u);
}

TEST(GuardedHeap, BlocksOfOtherThreadsAndOfEarlierTimesAreNotCounted) {
  char* earlier = opaque(new char[1]);
  char* other = nullptr;
  std::thread thread;
  {
    const guarded_heap::Mark mark;
    thread = std::thread([&] { other = opaque(new char[1]); });
    thread.join();
    EXPECT_EQ(mark.countLeft(), 0u);
    // A block that another thread deletes is gone all the same.
    char* mine = opaque(new char[1]);
    EXPECT_EQ(mark.countLeft(), 1u);
    thread = std::thread([&] { delete[] mine; });
    thread.join();
    EXPECT_EQ(mark.countLeft(), 0u);
  }
  delete[] earlier;
  delete[] other;
}

TEST(GuardedHeap, BlocksAreAlignedAsAskedFor) {
  for (const std::size_t size : {1u, 15u, 16u, 17u, 4000u, 5000u}) {
    for (const std::size_t alignment : {16u, 32u, 64u, 4096u}) {
      void* block = ::operator new(size, std::align_val_t(alignment));
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0u) << size;
      std::memset(block, 1, size);
      ::operator delete(block, std::align_val_t(alignment));
    }
  }
}

TEST(FailingNew, FailsTheNthAllocationOnceInBothForms) {
  {
    const FailingNew failing(2);
    const std::unique_ptr<char> first(opaque(new char));
    EXPECT_FALSE(failing.hasFailed());
    EXPECT_THROW(opaque(new char), std::bad_alloc);
    EXPECT_TRUE(failing.hasFailed());
    const std::unique_ptr<char> third(opaque(new char));
  }
  const FailingNew failing(1);
  EXPECT_EQ(opaque(new (std::nothrow) char), nullptr);
}

TEST(FailingNew, AllocationsDuringAPauseNeitherFailNorCount) {
  const FailingNew failing(1);
  {
    const FailingNew::Pause pause;
    const std::unique_ptr<char> block(opaque(new char));
  }
  EXPECT_FALSE(failing.hasFailed());
  EXPECT_THROW(opaque(new char), std::bad_alloc);
}

TEST(FailingNew, OtherThreadsAllocateUndisturbed) {
  const FailingNew failing(1);
  bool hasAllocated = false;
  {
    const FailingNew::Pause pause;
    std::thread([&] {
      delete opaque(new char);
      hasAllocated = true;
    }).join();
  }
  EXPECT_TRUE(hasAllocated);
  EXPECT_FALSE(failing.hasFailed());
}

}  // namespace
