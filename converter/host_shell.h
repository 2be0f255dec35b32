#pragma once

#include <string>

namespace mg::converter {

// The system below Wine: its paths, and its /bin/sh. Each throws a ConversionError (kFileSystem, kGhostscriptMissing).

// True under Wine.
bool runsUnderWine();

// The path by which the host knows a file.
std::string hostPath(const std::wstring& path);

// Starts `/bin/sh -c <script>` and returns at once: Wine gives no handle for a program of the host.
void startShell(const std::string& script);

}  // namespace mg::converter
