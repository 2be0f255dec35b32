#pragma once

#include <string>
#include <vector>

namespace programs {

// A word as a program's run time reads it out of a command line of Windows: between quotation marks where it needs
// them, those within it and the backslashes in front of them doubled or marked.
std::wstring quotedWord(const std::wstring& word);
// The words of such a line, the program's own path first.
std::vector<std::wstring> wordsOf(const std::wstring& commandLine);
std::wstring commandLineOf(const std::vector<std::wstring>& words);

}  // namespace programs
