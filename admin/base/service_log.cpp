#include "admin/base/service_log.h"

#include "admin/base/files.h"
#include "corvane/base/text.h"

#include <chrono>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace admin {
namespace {

constexpr long long kLimitBytes = 8 * 1024 * 1024;

}  // namespace

ServiceLog::ServiceLog(const std::wstring& file) : m_file(file, kLimitBytes) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(file).parent_path(), ignored);
  m_stream << "mgprintmon starts\n";
  m_file.flush();
  m_isWritable = std::filesystem::is_regular_file(file, ignored);
}

ServiceLog::int_type ServiceLog::overflow(int_type character) {
  if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
  m_line.push_back(traits_type::to_char_type(character));
  if (m_line.back() == '\n') {
    char now[64];
    const std::size_t length = corvane::writeLocalTime(now, sizeof now, std::chrono::system_clock::now());
    m_line.insert(0, std::string(now, length) + " ");
    m_file.append(m_line.data(), m_line.size());
    m_line.clear();
  }
  return character;
}

}  // namespace admin
