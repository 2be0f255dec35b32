#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mg::converter {

// Joins words into a command line that CommandLineToArgvW and the C runtime split into the same words. Safe from any
// thread; throws std::bad_alloc only.
std::wstring argumentLine(const std::vector<std::wstring>& words);

// The system below Wine: its paths, and its /bin/sh. Each throws a ConversionError (kFileSystem, kGhostscriptMissing).

// True under Wine.
bool runsUnderWine();

// The path of a file on the host.
std::string hostPath(const std::wstring& path);

// Writes any bytes as one word of a POSIX shell in ASCII characters only, so that no shell character in a name means
// anything and no code page on the way can change a byte. NUL bytes and trailing line ends are lost; no file name has
// them.
std::string shellWord(std::string_view bytes);

// The Windows command line by which Wine starts `/bin/sh -c <script>` with exactly these words.
std::wstring shellCommandLine(const std::string& script);

// Starts `/bin/sh -c <script>` and returns at once: Wine gives no handle for a program of the host.
void startShell(const std::string& script);

}  // namespace mg::converter
