#pragma once

#include <windows.h>

#include <string>

namespace mg::converter {

// Where the limits of the installed converter are kept, below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kConverterKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Converter";

// What one conversion may use. A PostScript job is a program: without these it could run, grow or write forever.
struct Limits {
  // Wall-clock time, seconds.
  DWORD timeSeconds = 300;
  // Memory of the Ghostscript process, megabytes (2^20 bytes).
  DWORD memoryMegabytes = 1024;
  // All files together that Ghostscript writes, megabytes; each counts as 4,096 bytes at least.
  DWORD outputMegabytes = 1024;
  // The Ghostscript program; empty means the installed one. Under Wine this is a path of the host.
  std::wstring ghostscript;
};

// Reads the limits from the key `path` below `root`. A missing key or value keeps its default; a value of the wrong
// type or out of range is a ConversionError (kConfiguration) that names the value, its range and its default.
Limits readLimits(HKEY root, const wchar_t* path);

}  // namespace mg::converter
