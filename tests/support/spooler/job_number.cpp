#include "tests/support/spooler/job_number.h"

#include "tests/support/spooler/system_failure.h"

#include <winspool.h>

#include <string>

namespace mg::support {

// A mutex for each number says that it is in use; ours is the first number that is not, and those before it are passed
// over.
ObjectHandle takeJobNumber(HANDLE printer) {
  for (DWORD number = 1;; ++number) {
    ObjectHandle mutex(CreateMutexW(nullptr, FALSE, (L"mgspool job " + std::to_wstring(number)).c_str()));
    require(static_cast<bool>(mutex), "the mutex of a job number cannot be made");
    // A process that was killed has abandoned its number.
    if (WaitForSingleObject(mutex.get(), 0) != WAIT_TIMEOUT) return mutex;
    BYTE room[sizeof(ADDJOB_INFO_1W) + MAX_PATH * sizeof(wchar_t)];
    DWORD needed = 0;
    require(AddJobW(printer, 1, room, sizeof room, &needed), "a job number in use cannot be passed over");
  }
}

}  // namespace mg::support
