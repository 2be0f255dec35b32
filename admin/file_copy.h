#pragma once

#include <string>

namespace admin {

// Files by path, as Windows has them. Everything here throws a SystemFailure that names the file.

bool fileExists(const std::wstring& path);
bool folderExists(const std::wstring& path);
// Both are there and hold the same bytes.
bool sameContent(const std::wstring& left, const std::wstring& right);
// Writes a new file with the content of another one, complete on disk when this returns; what it had written is gone
// when it fails. A file of the target's name is overwritten.
void copyFile(const std::wstring& from, const std::wstring& to);
void moveFile(const std::wstring& from, const std::wstring& to, bool mayReplace);
// Fine when it is not there.
void deleteFile(const std::wstring& path);
// Fails when somebody holds the file so that it cannot be replaced: the spooler, as a rule, a module that it has
// loaded.
void requireReplaceable(const std::wstring& path);
// The whole content as bytes; at most that many from its end.
std::string fileTail(const std::wstring& path, unsigned bytes);

}  // namespace admin
