#include "client/file_name.h"

#include "corvane/base/text.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace printclient {
namespace {

bool becomesHyphen(char32_t point) {
  return std::u32string_view(U"\\/:*?\"<>|").find(point) != std::u32string_view::npos;
}

std::string upper(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return result;
}

// Windows treats these as devices with any extension, so only the part before the first dot counts.
bool isReserved(std::string_view name) {
  std::string stem = upper(name.substr(0, name.find('.')));
  while (!stem.empty() && stem.back() == ' ')
    stem.pop_back();
  static constexpr std::array<std::string_view, 6> kDevices = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
  if (std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end()) return true;
  const bool numbered = stem.substr(0, 3) == "COM" || stem.substr(0, 3) == "LPT";
  if (!numbered) return false;
  const std::string number = stem.substr(3);
  const bool superscript = number == "\xC2\xB9" || number == "\xC2\xB2" || number == "\xC2\xB3";
  return superscript || (number.size() == 1 && number[0] >= '0' && number[0] <= '9');
}

void trimDotsAndBlanks(std::string& name) {
  const std::size_t first = name.find_first_not_of(". ");
  if (first == std::string::npos) {
    name.clear();
    return;
  }
  name = name.substr(first, name.find_last_not_of(". ") - first + 1);
}

void cut(std::string& name, std::size_t limit) {
  if (name.size() <= limit) return;
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80)
    --end;
  name.resize(end);
}

std::string madeSafe(std::wstring_view text, std::string_view extension) {
  const std::string given = corvane::toUtf8(text);
  std::string name;
  for (std::size_t at = 0; at < given.size();) {
    const char32_t point = corvane::nextUtf8(given, at);
    // What nobody can see could show the letters, and so the ending, in another order than they are stored.
    if (corvane::isPrintable(point)) corvane::appendUtf8(name, becomesHyphen(point) ? U'-' : point);
  }
  trimDotsAndBlanks(name);
  if (name.size() > extension.size() && upper(name.substr(name.size() - extension.size())) == upper(extension)) {
    name.resize(name.size() - extension.size());
    trimDotsAndBlanks(name);
  }
  cut(name, kMaxFileNameBytes);
  trimDotsAndBlanks(name);
  if (isReserved(name)) name.insert(0, "_");
  return name;
}

}  // namespace

std::string fileNameFor(std::wstring_view documentName, std::wstring_view fallback, std::string_view extension) {
  std::string name = madeSafe(documentName, extension);
  if (name.empty()) name = madeSafe(fallback, extension);
  return name.empty() ? "job" : name;
}

std::string numberedName(std::string_view name, std::string_view extension, int number) {
  std::string result(name);
  if (number > 1) result += " (" + std::to_string(number) + ")";
  return result.append(extension);
}

}  // namespace printclient
