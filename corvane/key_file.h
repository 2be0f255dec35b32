#pragma once

#include <cstddef>
#include <span>
#include <string>

// What the platforms do differently about key files; for key.cpp. Names are UTF-8. Failures are CS_Exceptions (3108).
namespace corvane {

// Reads as much of a plain file as the buffer takes and returns how much that was. Refuses a file that others may read,
// where the system has such modes.
std::size_t readKeyFile(const std::string& file, std::span<unsigned char> buffer);
// Makes a file that did not exist with that content, or leaves none.
void createKeyFile(const std::string& file, std::span<const unsigned char> content);
// See KeyFolder::refusal.
std::wstring keyFolderRefusal(const std::string& folder);

}  // namespace corvane
