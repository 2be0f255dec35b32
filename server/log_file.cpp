#include "server/log_file.h"

#include "programs/text.h"

namespace aps {
namespace {

std::filesystem::path withSuffix(const std::filesystem::path& path, const char* suffix) {
  std::filesystem::path longer = path;
  return longer += suffix;
}

}  // namespace

std::string LogFile::open() {
  AppendFile opened;
  if (const std::error_code failure = opened.open(m_path)) {
    return "the log file " + programs::fromPath(m_path) + " cannot be opened: " + failure.message();
  }
  m_file = std::move(opened);
  m_isRegular = m_file.isRegular();
  m_size = m_isRegular ? m_file.size() : 0;
  m_isLineCut = false;
  return {};
}

void LogFile::reopenNow() {
  if (const std::string failure = open(); !failure.empty()) {
    m_reopenFailure = failure + "; the file that was open before is written on";
  }
}

std::error_code LogFile::rotate() {
  const std::filesystem::path fresh = withSuffix(m_path, ".new");
  const std::filesystem::path old = withSuffix(m_path, ".1");
  std::error_code failure;
  std::filesystem::remove(fresh, failure);
  AppendFile made;
  if ((failure = made.make(fresh))) return failure;
  std::error_code ignored;
  std::filesystem::rename(m_path, old, failure);
  const bool wasThere = failure != std::errc::no_such_file_or_directory;  // somebody may have taken it away
  if (!failure || !wasThere) {
    std::filesystem::rename(fresh, m_path, failure);
    if (failure && wasThere) std::filesystem::rename(old, m_path, ignored);
  }
  if (failure) {
    std::filesystem::remove(fresh, ignored);
    return failure;
  }
  m_file = std::move(made);
  m_size = 0;
  m_isLineCut = false;
  return {};
}

std::string LogFile::makeRoom(std::size_t bytes) {
  if (!m_isRegular || m_size == 0 || m_size + bytes <= m_limit) return {};
  const std::error_code failure = rotate();
  if (!failure || m_size + bytes <= 2 * m_limit) return {};
  return "the log is full and cannot be renamed to " + programs::fromPath(withSuffix(m_path, ".1")) + ": " +
         failure.message();
}

std::string LogFile::write(const std::string& text) {
  if (m_wantsReopening.exchange(false)) reopenNow();
  if (std::string failure = makeRoom(text.size()); !failure.empty()) return failure;
  const std::string whole = m_isLineCut ? "\n" + text : text;
  std::size_t written = 0;
  const std::error_code failure = m_file.write(whole, written);
  m_size += written;
  if (written > 0) m_isLineCut = written < whole.size();
  return failure ? failure.message() : std::string();
}

}  // namespace aps
