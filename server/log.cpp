#include "server/log.h"

#include "programs/paths.h"

#include <chrono>
#include <ctime>
#include <stdexcept>
#include <system_error>

namespace aps {
namespace {

std::string timeNow() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts = {};
#ifdef _WIN32
  localtime_s(&parts, &seconds);
#else
  localtime_r(&seconds, &parts);
#endif
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03d ", static_cast<int>(milliseconds));
  return text;
}

}  // namespace

Log::Log(const std::filesystem::path& file, std::uint64_t limitBytes) : m_path(file), m_limit(limitBytes) {
  if (m_path.empty()) return;
  if (!openLocked()) {
    throw std::runtime_error("the log file " + programs::fromPath(m_path) +
                             " cannot be opened: " + std::generic_category().message(errno));
  }
}

Log::~Log() {
  if (m_file != nullptr) std::fclose(m_file);
}

bool Log::openLocked() {
#ifdef _WIN32
  m_file = _wfopen(m_path.c_str(), L"ab");
#else
  m_file = std::fopen(m_path.c_str(), "ab");
#endif
  if (m_file == nullptr) return false;
  std::error_code ignored;
  const auto size = std::filesystem::file_size(m_path, ignored);
  m_size = ignored ? 0 : size;
  return true;
}

void Log::rotateLocked() {
  std::fclose(m_file);
  m_file = nullptr;
  std::filesystem::path old = m_path;
  old += ".1";
  std::error_code ignored;
  std::filesystem::rename(m_path, old, ignored);
  openLocked();
}

void Log::line(const std::string& text) noexcept try { write(timeNow() + text + "\n"); } catch (...) {
}

void Log::failure(const std::string& text) noexcept try {
  const std::string timed = timeNow() + text;
  m_failures.add(timed);
  write(timed + "\n");
} catch (...) {
}

void Log::write(const std::string& whole) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_file != nullptr && m_size > 0 && m_size + whole.size() > m_limit) rotateLocked();
  std::FILE* target = m_path.empty() ? stderr : m_file;
  if (target == nullptr) return;
  std::fwrite(whole.data(), 1, whole.size(), target);
  std::fflush(target);
  m_size += whole.size();
}

}  // namespace aps
