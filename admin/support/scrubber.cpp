#include "admin/support/scrubber.h"

#include "admin/base/output.h"
#include "corvane/base/text.h"
#include "util/win_handle.h"

#include <windows.h>

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

constexpr char kLeftOut[] = "(left out)";
constexpr std::size_t kShortestKey = 32;  // hexadecimal digits of an invitation

// Lines with what documents say, or with their titles outside of quotation marks.
constexpr std::string_view kTellingLines[] = {"Deleted print job",
                                              "normalizer log",
                                              "The conversion failed",
                                              "was not converted",
                                              "The PDF would not be complete",
                                              "notepad"};

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lower(c); });
  return result;
}

// A byte of a word; those of letters beyond ASCII count.
bool isOfWord(char c) {
  return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') || static_cast<unsigned char>(c) >= 0x80;
}

bool isHexadecimal(char c) {
  return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'f');
}

void leaveOutWord(std::string& text, const std::string& word) {
  std::string small = lower(text);
  for (std::size_t at = small.find(word); at != std::string::npos; at = small.find(word, at)) {
    const std::size_t end = at + word.size();
    const bool beginsInWord = at > 0 && isOfWord(small[at - 1]) && isOfWord(word.front());
    const bool endsInWord = end < small.size() && isOfWord(small[end]) && isOfWord(word.back());
    if (beginsInWord || endsInWord) {
      ++at;
      continue;
    }
    text.replace(at, word.size(), kLeftOut);
    small.replace(at, word.size(), kLeftOut);
    at += std::size(kLeftOut) - 1;
  }
}

void leaveOutKeys(std::string& text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto end = std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), isHexadecimal);
    const auto length = static_cast<std::size_t>(end - text.begin()) - at;
    if (length < kShortestKey) {
      at += length;
      continue;
    }
    text.replace(at, length, kLeftOut);
    at += std::size(kLeftOut) - 1;
  }
}

// What stands behind each of the words, up to one of the characters.
void leaveOutBehind(std::string& text, const std::string& words, const char* ends) {
  std::string small = lower(text);
  for (std::size_t at = small.find(words); at != std::string::npos; at = small.find(words, at)) {
    at += words.size();
    const std::size_t end = std::min(text.find_first_of(ends, at), text.size());
    if (end == at) continue;
    text.replace(at, end - at, kLeftOut);
    small.replace(at, end - at, kLeftOut);
    at += std::size(kLeftOut) - 1;
  }
}

std::wstring environment(const wchar_t* name) {
  wchar_t text[1024];
  const DWORD length = GetEnvironmentVariableW(name, text, static_cast<DWORD>(std::size(text)));
  return length > 0 && length < std::size(text) ? std::wstring(text, length) : std::wstring();
}

bool isText(std::string_view line) {
  return line.find('\0') == std::string_view::npos && corvane::toUtf8(corvane::fromUtf8(line)) == line;
}

}  // namespace

void Scrubber::know(const std::wstring& name) {
  std::wstring small = name;
  std::wstring capitals = name;
  CharLowerBuffW(small.data(), static_cast<DWORD>(small.size()));
  CharUpperBuffW(capitals.data(), static_cast<DWORD>(capitals.size()));
  for (const std::wstring& known : {name, small, capitals}) {
    remember(known);
    const std::size_t domain = known.rfind(L'\\');
    if (domain != std::wstring::npos) remember(known.substr(domain + 1));
  }
}

void Scrubber::remember(const std::wstring& name) {
  if (name.size() < 2) return;
  const Json text = textValue(name);
  for (const bool isAscii : {false, true}) {
    const std::string json = text.dump(-1, ' ', isAscii, Json::error_handler_t::replace);
    m_names.insert(lower(std::string_view(json).substr(1, json.size() - 2)));
  }
  m_names.insert(lower(corvane::toUtf8(name)));
}

void Scrubber::knowUsersHere() {
  know(environment(L"USERNAME"));
  const std::wstring profile = environment(L"USERPROFILE");
  const std::size_t end = profile.rfind(L'\\');
  if (end == std::wstring::npos) return;
  WIN32_FIND_DATAW found{};
  const mg::FindHandle search(FindFirstFileW((profile.substr(0, end) + L"\\*").c_str(), &found));
  if (!search) return;
  do {
    const std::wstring name = found.cFileName;
    const bool isNobody = name == L"Public" || name == L"Default" || name == L"All Users" || name == L"Default User";
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !isNobody && name.front() != L'.') know(name);
  } while (FindNextFileW(search.get(), &found));
}

std::string Scrubber::text(std::string_view text) const {
  std::string left(text);
  for (const std::string& name : m_names)
    leaveOutWord(left, name);
  leaveOutKeys(left);
  // Once as it stands and once as JSON writes it.
  leaveOutBehind(left, "\\users\\", "\\/\"\r\n");
  leaveOutBehind(left, "\\\\users\\\\", "\\/\"\r\n");
  leaveOutBehind(left, "open to others: ", "\"\r\n");
  leaveOutBehind(left, " belongs to ", ",\"\r\n");
  leaveOutBehind(left, "canceled by ", "\"\r\n");
  return left;
}

std::string Scrubber::logLine(std::string_view line) const {
  if (!isText(line)) return {};
  for (const std::string_view telling : kTellingLines) {
    if (line.find(telling) != std::string_view::npos) return {};
  }
  std::string left(line);
  const std::size_t first = left.find('"');
  const std::size_t last = left.rfind('"');
  // One that was cut.
  if (first != std::string::npos && first == last) return {};
  if (first != std::string::npos) left.replace(first, last - first + 1, kLeftOut);
  return text(left);
}

std::string Scrubber::log(std::string_view log) const {
  std::string left;
  std::size_t missing = 0;
  while (!log.empty()) {
    const std::size_t end = std::min(log.find('\n'), log.size());
    std::string_view line = log.substr(0, end);
    log.remove_prefix(std::min(end + 1, log.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::string kept = logLine(line);
    if (kept.empty() && !line.empty()) ++missing;
    if (!kept.empty()) left += kept + "\r\n";
  }
  if (missing > 0) left += fmt::format("{} lines are left out: documents may stand in them.\r\n", missing);
  return left;
}

}  // namespace admin
