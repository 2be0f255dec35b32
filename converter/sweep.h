#pragma once

#include <string>

namespace mg::converter {

// The names by which a run's folder is known: the prefix and 16 hexadecimal digits, and the file in it that the run
// holds open while it lives.
inline constexpr wchar_t kFolderPrefix[] = L"ps2pdf-";
inline constexpr wchar_t kInUseFile[] = L"\\in-use";

// Removes the folders in `parent` (with its backslash) that runs have left there which were killed: at most `most`, so
// that a run never pays for many. The folder of a living run is never touched, nor is one that a run may just be
// making: without its file a folder counts as left after an hour. Throws nothing.
void sweepFolders(const std::wstring& parent, int most) noexcept;

}  // namespace mg::converter
