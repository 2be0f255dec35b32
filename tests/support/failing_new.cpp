#include "tests/support/failing_new.h"

#include <windows.h>

#include <atomic>

namespace {

std::atomic<DWORD> failingThread{0};
// All are touched by that thread only.
int failIn = 0;
int toFail = 0;
int pauses = 0;

}  // namespace

FailingNew::FailingNew(int nth, int inARow) {
  failIn = nth;
  toFail = nth > 0 ? inARow : 0;
  pauses = 0;
  failingThread = GetCurrentThreadId();
}

FailingNew::~FailingNew() {
  failingThread = 0;
}

bool FailingNew::hasFailed() const {
  return failIn == 0;
}

FailingNew::Pause::Pause() : m_applies(failingThread.load() == GetCurrentThreadId()) {
  if (m_applies) ++pauses;
}

FailingNew::Pause::~Pause() {
  if (m_applies) --pauses;
}

bool FailingNew::failsNow() noexcept {
  if (failingThread.load() != GetCurrentThreadId() || pauses != 0 || toFail == 0) return false;
  if (failIn > 0 && --failIn > 0) return false;
  --toFail;
  return true;
}
