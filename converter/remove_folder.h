#pragma once

#include <string>

namespace mg::converter {

// Removes a folder of a run with all that is in it, whatever its names are: also those that Windows takes for devices
// or for nothing ("aux", "x."), and under Wine those that only the host can name ("a\nb", "q?"). Each entry is tried
// once, so it ends; what still stands then is left to the next run. Links are removed and not followed. False when the
// folder is still there. Throws nothing; may be called by any thread.
bool removeFolder(const std::wstring& path) noexcept;

// The same with the calls of Windows alone.
bool removeFolderWithWindows(const std::wstring& path) noexcept;

}  // namespace mg::converter
