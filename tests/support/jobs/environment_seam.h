#pragma once

#include <windows.h>

#include <functional>

// The time and the directory for temporary files as this folder's tests see them. Set until the test's ImportSeams
// ends.
namespace environment_seam {

void replaceTickCount(std::function<DWORD()> ticks);
void replaceTempPath(std::function<DWORD(DWORD size, LPWSTR out)> path);

}  // namespace environment_seam
