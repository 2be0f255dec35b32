#pragma once

#include <string>

namespace admin {

// A folder for the system, the administrators and one more identity, whatever its parents allow; what comes into it
// inherits that. Identities are security identifiers as text. Failures are SystemFailures that name the folder.

// Makes it in an existing one.
void createPrivateFolder(const std::wstring& path, const std::wstring& identity);
// Gives an existing one these rights. Its owner may change them at any time, so a Failure says when he is neither the
// system, nor an administrator, nor who runs this: the folder was prepared by somebody else.
void makeFolderPrivate(const std::wstring& path, const std::wstring& identity);
// Who else may use the folder, by name, for people; empty when it is as it should be.
std::string strangersIn(const std::wstring& path, const std::wstring& identity);

}  // namespace admin
