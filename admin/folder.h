#pragma once

#include <string>
#include <vector>

namespace admin {

// Makes a folder in one that exists; throws a SystemFailure that names it.
void createFolder(const std::wstring& path);
// Deletes a folder; fine when it is not there. Throws a SystemFailure when it is not empty or in use.
void deleteFolder(const std::wstring& path);
// The folder and those above it that are not there, the outermost first.
std::vector<std::wstring> missingFolders(std::wstring path);

}  // namespace admin
