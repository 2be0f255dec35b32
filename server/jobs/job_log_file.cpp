#include "server/jobs/job_log_file.h"

#include <fstream>
#include <system_error>

namespace aps {
namespace {

bool endsWithinLine(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  file.seekg(-1, std::ios::end);
  char last = '\n';
  return file.get(last) && last != '\n';
}

}  // namespace

std::string JobLogFile::open() {
  m_part = 0;
  m_file.close();
  AppendFile opened;
  if (const std::error_code failure = opened.open(m_path)) return failure.message();
  if (!opened.isRegular()) return "it is no file on a disk";
  m_size = opened.size();
  m_isLineCut = m_size > 0 && endsWithinLine(m_path);
  m_file = std::move(opened);
  return {};
}

std::string JobLogFile::makeRoom(std::size_t bytes) {
  // The rest of a line that was cut belongs to this file.
  if (m_size == 0 || m_part > 0 || m_size + bytes <= m_limit) return {};
  std::filesystem::path old = m_path;
  old += ".1";
  m_file.close();
  std::error_code failure;
  std::filesystem::rename(m_path, old, failure);
  std::string why = open();
  if (!why.empty() || !failure || m_size + bytes <= 2 * m_limit) return why;
  m_file.close();
  return "it is full and cannot be renamed: " + failure.message();
}

std::string JobLogFile::write(const std::string& lines) {
  if (m_wantsReopening.exchange(false)) m_file.close();
  if (!m_file.isOpen()) {
    if (std::string why = open(); !why.empty()) return why;
  }
  if (std::string why = makeRoom(lines.size()); !why.empty()) return why;
  const std::string whole = m_isLineCut ? "\n" + lines : lines.substr(m_part);
  std::size_t written = 0;
  const std::error_code failure = m_file.write(whole, written);
  m_size += written;
  if (written > 0 && m_isLineCut) {
    m_isLineCut = false;
    --written;
  }
  m_part = failure ? m_part + written : 0;
  return failure ? failure.message() : std::string();
}

}  // namespace aps
