#include "admin/base/zip_file.h"

#include "admin/base/failure.h"
#include "programs/text.h"

#include <fmt/format.h>

namespace admin {
namespace {

constexpr std::uint16_t kVersion = 20;      // 2.0, which every reader knows
constexpr std::uint16_t kUtf8 = 1u << 11u;  // the names are

std::string number(std::uint32_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i)
    text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

std::string two(std::uint32_t value) {
  return number(value, 2);
}

std::string four(std::uint32_t value) {
  return number(value, 4);
}

// CRC-32 as ZIP has it, bit by bit: the archives are small.
std::uint32_t checksumOf(const std::string& content) {
  std::uint32_t sum = 0xFFFFFFFF;
  for (const char c : content) {
    sum ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit)
      sum = (sum >> 1u) ^ ((sum & 1u) != 0 ? 0xEDB88320u : 0u);
  }
  return ~sum;
}

std::uint32_t dosTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  const std::uint32_t date = (now.wYear - 1980u) << 9u | static_cast<std::uint32_t>(now.wMonth) << 5u | now.wDay;
  const std::uint32_t time =
      static_cast<std::uint32_t>(now.wHour) << 11u | static_cast<std::uint32_t>(now.wMinute) << 5u | now.wSecond / 2u;
  return date << 16u | time;
}

}  // namespace

ZipFile::ZipFile(const std::wstring& path)
    : m_path(path),
      m_file(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)),
      m_time(dosTime()) {
  if (m_file) return;
  const SystemFailure failure(fmt::format("{} cannot be made", programs::quoted(path)), GetLastError());
  if (failure.error() == ERROR_FILE_EXISTS || failure.error() == ERROR_ALREADY_EXISTS) {
    throw Failure(ExitCode::kFailed, fmt::format("{} is there already", programs::quoted(path)),
                  "Name a file that is not there yet.");
  }
  if (failure.error() == ERROR_PATH_NOT_FOUND)
    throw Failure(failure.code(), failure.what(), "Make its folder, or name a file in another one.");
  throw Failure(failure.code(), failure.what(), failure.remedy());
}

ZipFile::~ZipFile() {
  if (m_isFinished) return;
  m_file.reset();
  DeleteFileW(m_path.c_str());
}

// What the header in front of the file and the entry in the directory have in common.
std::string ZipFile::header(const Entry& entry) const {
  return two(kVersion) + two(kUtf8) + two(0) + four(m_time) + four(entry.checksum) + four(entry.size) +
         four(entry.size) + two(static_cast<std::uint32_t>(entry.name.size())) + two(0);
}

void ZipFile::add(const std::string& name, const std::string& content) {
  const Entry entry{name, checksumOf(content), static_cast<std::uint32_t>(content.size()), m_written};
  write("PK\x03\x04" + header(entry) + name + content);
  m_entries.push_back(entry);
}

void ZipFile::finish() {
  const std::uint32_t begin = m_written;
  for (const Entry& entry : m_entries)
    write("PK\x01\x02" + two(kVersion) + header(entry) + two(0) + two(0) + two(0) + four(0) + four(entry.offset) +
          entry.name);
  const auto count = static_cast<std::uint32_t>(m_entries.size());
  write("PK\x05\x06" + two(0) + two(0) + two(count) + two(count) + four(m_written - begin) + four(begin) + two(0));
  require(FlushFileBuffers(m_file.get()), fmt::format("{} cannot be written", programs::quoted(m_path)));
  m_file.reset();
  m_isFinished = true;
}

void ZipFile::write(const std::string& bytes) {
  const std::string tried = fmt::format("{} cannot be written", programs::quoted(m_path));
  DWORD written = 0;
  require(WriteFile(m_file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr), tried);
  // A full disk stores what still fits and reports success.
  if (written != bytes.size()) throw SystemFailure(tried, ERROR_DISK_FULL);
  m_written += written;
}

}  // namespace admin
