#pragma once

#include <string>
#include <vector>

namespace admin {

// What tests see and say of the access lists of files and folders, in the text form of security descriptors (SDDL) that
// Windows documents; until the test's ImportSeams go.

// Every file and folder has that one.
void showAccessList(const std::wstring& descriptor);
// Adds each one with which a folder is made, or that is set later.
void recordAccessLists(std::vector<std::wstring>& lists);
// The next call that reads one, sets one or makes a folder is refused.
void refuseReadingAccessList();
void refuseSettingAccessList();
void refuseFolder();

}  // namespace admin
