#include "client/job_file.h"

#include "client/disk_file.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <limits>
#include <stdexcept>
#include <utility>

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
    // What is invisible could show the letters, and so the ending, in another order than they are stored.
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
  return number > 1 ? fmt::format("{} ({}){}", name, number, extension) : fmt::format("{}{}", name, extension);
}

namespace {

// Names that are tried; others may take a name after it was seen to be free.
constexpr int kMaxNames = 1000;

[[noreturn]] void throwNoName(std::string_view name, std::string_view extension) {
  throw std::runtime_error(fmt::format("there is no free name for \"{}\"", numberedName(name, extension, 1)));
}

}  // namespace

JobFile::JobFile(const std::filesystem::path& folder, const std::string& temporaryName)
    : m_folder(folder), m_temporaryName(temporaryName), m_file(std::make_unique<DiskFile>(pathOf(temporaryName))) {}

JobFile::~JobFile() = default;

std::filesystem::path JobFile::pathOf(const std::string& name) const {
  return m_folder / programs::toPath(name);
}

void JobFile::append(std::span<const unsigned char> bytes) {
  refer(bytes);
  letGo();
}

void JobFile::refer(std::span<const unsigned char> bytes) {
  if (m_referred.size() == kMostReferred) letGo();
  m_referred.reserve(kMostReferred);
  m_referred.push_back(bytes);
  m_referredBytes += bytes.size();
}

void JobFile::letGo() {
  const std::size_t all = m_rest.size() + std::exchange(m_referredBytes, 0);
  std::vector<DiskFile::Part> referred = std::exchange(m_referred, {});  // also when the write fails
  if (const std::size_t whole = all - all % kBlockBytes; whole > 0) {
    std::vector<DiskFile::Part> parts = {m_rest};
    std::size_t left = whole - m_rest.size();
    for (DiskFile::Part& part : referred) {
      parts.push_back(part.first(std::min(left, part.size())));
      part = part.subspan(parts.back().size());
      left -= parts.back().size();
    }
    m_file->write(parts);
    m_rest.clear();
  }
  for (const DiskFile::Part& part : referred)
    m_rest.insert(m_rest.end(), part.begin(), part.end());
}

void JobFile::flush() {
  letGo();
  if (m_rest.empty()) return;
  m_file->write(m_rest);
  m_rest.clear();
}

int JobFile::freeNumber(std::string_view name, std::string_view extension) const {
  const auto isTaken = [&](int number) {
    std::error_code ignored;  // whether a name that cannot be examined is taken shows when renaming
    const auto status = std::filesystem::symlink_status(pathOf(numberedName(name, extension, number)), ignored);
    return std::filesystem::exists(status);
  };
  int taken = kInOrder;
  int free = 2 * kInOrder;
  while (isTaken(free)) {
    if (free > std::numeric_limits<int>::max() / 2) {
      throwNoName(name, extension);
    }
    taken = free;
    free *= 2;
  }
  while (free - taken > 1) {
    const int middle = taken + (free - taken) / 2;
    (isTaken(middle) ? taken : free) = middle;
  }
  return free;
}

void JobFile::copyTo(DiskFile& other) {
  flush();
  m_file->readBack([&other](std::span<const unsigned char> piece) { other.write(piece); });
}

std::filesystem::path JobFile::settle() {
  flush();
  m_file->sync();
  return pathOf(m_temporaryName);
}

std::filesystem::path JobFile::share(std::string_view extension) {
  flush();
  const std::filesystem::path path = pathOf(fmt::format("{}{}", m_temporaryName, extension));
  m_file->shareAs(path);
  return path;
}

std::string JobFile::keepAs(std::string_view name, std::string_view extension) {
  flush();
  m_file->sync();
  int number = 1;
  for (int attempt = 0; attempt < kMaxNames; ++attempt) {
    std::string candidate = numberedName(name, extension, number);
    if (m_file->renameTo(pathOf(candidate))) {
      m_file.reset();
      return candidate;
    }
    number = number < kInOrder ? number + 1 : freeNumber(name, extension);
  }
  throwNoName(name, extension);
}

}  // namespace printclient
