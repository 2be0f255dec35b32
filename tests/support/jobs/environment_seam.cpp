#include "tests/support/jobs/environment_seam.h"

#include "tests/support/import_seam.h"

MG_IMPORT_SEAM(L"kernel32.dll", GetTempPathW, 0)
MG_IMPORT_SEAM(L"kernel32.dll", GetTickCount, 0)

namespace environment_seam {

void replaceTickCount(std::function<DWORD()> ticks) {
  GetTickCountSeam.replacement = std::move(ticks);
}

void replaceTempPath(std::function<DWORD(DWORD size, LPWSTR out)> path) {
  GetTempPathWSeam.replacement = std::move(path);
}

}  // namespace environment_seam
