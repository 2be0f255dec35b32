#include "tests/support/import_seam.h"

#include <array>
#include <atomic>
#include <mutex>
#include <winternl.h>

// Looked up below the level that a seam can stand at, so that GetProcAddress and its kin can have seams as well.
extern "C" {
NTSTATUS NTAPI LdrLoadDll(PWSTR path, PULONG flags, PUNICODE_STRING name, PVOID* module);
NTSTATUS NTAPI LdrGetProcedureAddress(PVOID module, PANSI_STRING name, ULONG ordinal, PVOID* address);
}

namespace import_seam {
namespace {

// The run time's mutexes wait and wake through Windows calls that may have seams; a thread that waits for the seams'
// own lock must not come here again by its waiting, for it would take the wake-up that it waits for. So this one spins.
class SpinLock {
 public:
  void lock() noexcept {
    while (m_taken.test_and_set(std::memory_order_acquire))
      YieldProcessor();
  }
  void unlock() noexcept { m_taken.clear(std::memory_order_release); }

 private:
  std::atomic_flag m_taken;
};

struct State {
  SpinLock lock;
  std::vector<Seam*> seams;
  // A call is written down without an allocation: the code under test may be having its allocations counted.
  std::array<const char*, 16384> calls;
  std::size_t callCount = 0;
  int failIn = 0;
  DWORD failingThread = 0;
  DWORD error = 0;
  bool failed = false;
  bool failsOn = false;  // all calls behind the chosen one
};

// Never destroyed: a call may come when the process is on its way out.
State& state() {
  static State* const only = new State;
  return *only;
}

}  // namespace

Seam::Seam() {
  const std::lock_guard guard(state().lock);
  state().seams.push_back(this);
}

bool Seam::enter(const char* function) {
  const std::lock_guard guard(state().lock);
  if (state().callCount < state().calls.size()) state().calls[state().callCount++] = function;
  if (state().failingThread != GetCurrentThreadId()) return false;
  if (state().failed && state().failsOn) return true;
  if (state().failIn == 0) return false;
  if (--state().failIn != 0) return false;
  state().failed = true;
  return true;
}

DWORD Seam::chosenError() {
  const std::lock_guard guard(state().lock);
  return state().error;
}

void* Seam::lookUp(const wchar_t* module, const char* function) {
  UNICODE_STRING moduleName;
  RtlInitUnicodeString(&moduleName, module);
  ANSI_STRING functionName;
  RtlInitAnsiString(&functionName, function);
  PVOID handle = nullptr;
  PVOID address = nullptr;
  if (LdrLoadDll(nullptr, nullptr, &moduleName, &handle) < 0 ||
      LdrGetProcedureAddress(handle, &functionName, 0, &address) < 0) {
    __builtin_trap();
  }
  return address;
}

}  // namespace import_seam

ImportSeams::ImportSeams() {
  const std::lock_guard guard(import_seam::state().lock);
  import_seam::state().callCount = 0;
  import_seam::state().failIn = 0;
  import_seam::state().failed = false;
}

ImportSeams::~ImportSeams() {
  const std::lock_guard guard(import_seam::state().lock);
  for (import_seam::Seam* seam : import_seam::state().seams)
    seam->restore();
  import_seam::state().failIn = 0;
  import_seam::state().failed = import_seam::state().failsOn = false;
}

std::vector<std::string> ImportSeams::calls() const {
  const std::lock_guard guard(import_seam::state().lock);
  const import_seam::State& state = import_seam::state();
  return {state.calls.begin(), state.calls.begin() + static_cast<std::ptrdiff_t>(state.callCount)};
}

void ImportSeams::failNth(int nth, DWORD error) {
  failFrom(nth, error);
  const std::lock_guard guard(import_seam::state().lock);
  import_seam::state().failsOn = false;
}

void ImportSeams::failFrom(int nth, DWORD error) {
  const std::lock_guard guard(import_seam::state().lock);
  import_seam::state().failsOn = true;
  import_seam::state().failIn = nth;
  import_seam::state().failingThread = GetCurrentThreadId();
  import_seam::state().error = error;
  import_seam::state().failed = false;
}

bool ImportSeams::hasFailed() const {
  const std::lock_guard guard(import_seam::state().lock);
  return import_seam::state().failed;
}
