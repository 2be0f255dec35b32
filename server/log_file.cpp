#include "server/log_file.h"

#include "programs/text.h"

#include <fmt/format.h>

#ifdef _WIN32
#include <windows.h>

#include <sddl.h>
#else
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace aps {
namespace {

#ifdef _WIN32

// The system, the administrators, and the account of this process; nothing is inherited from the folder.
constexpr wchar_t kWhoMayRead[] = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;OW)";

HANDLE handleOf(std::intptr_t file) {
  return reinterpret_cast<HANDLE>(file);
}

// As the error of the standard library, whose words are the same on every platform.
std::error_code lastError() {
  const std::error_condition same =
      std::error_code(static_cast<int>(::GetLastError()), std::system_category()).default_error_condition();
  return {same.value(), same.category()};
}

std::error_code openFile(const std::filesystem::path& path, bool makeNew, std::intptr_t& file) {
  SECURITY_ATTRIBUTES security{sizeof security, nullptr, FALSE};
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kWhoMayRead, SDDL_REVISION_1, &security.lpSecurityDescriptor,
                                                         nullptr);
  const HANDLE opened =
      ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &security,
                    makeNew ? CREATE_NEW : OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  const std::error_code failure = opened == INVALID_HANDLE_VALUE ? lastError() : std::error_code();
  ::LocalFree(security.lpSecurityDescriptor);
  file = reinterpret_cast<std::intptr_t>(opened);
  return failure;
}

void closeFile(std::intptr_t file) {
  ::CloseHandle(handleOf(file));
}

bool isDiskFile(std::intptr_t file) {
  return ::GetFileType(handleOf(file)) == FILE_TYPE_DISK;
}

std::uint64_t sizeOf(std::intptr_t file) {
  LARGE_INTEGER size{};
  return ::GetFileSizeEx(handleOf(file), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::error_code writeSome(std::intptr_t file, std::string_view text, std::size_t& written) {
  DWORD some = 0;
  if (!::WriteFile(handleOf(file), text.data(), static_cast<DWORD>(text.size()), &some, nullptr)) return lastError();
  if (some == 0) return std::make_error_code(std::errc::no_space_on_device);
  written += some;
  return {};
}

#else

int logDescriptor(std::intptr_t file) {
  return static_cast<int>(file);
}

std::error_code lastError() {
  return {errno, std::generic_category()};
}

std::error_code openFile(const std::filesystem::path& path, bool makeNew, std::intptr_t& file) {
  // Without O_NONBLOCK the opening of a pipe waits for its reader.
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (makeNew ? O_EXCL : 0);
  const int opened = ::open(path.c_str(), flags, S_IRUSR | S_IWUSR);
  if (opened < 0) return lastError();
  ::fcntl(opened, F_SETFL, O_APPEND);
  file = opened;
  struct stat facts {};
  if (::fstat(opened, &facts) == 0 && S_ISREG(facts.st_mode) && (facts.st_mode & S_IRWXO) != 0) {
    ::fchmod(opened, S_IRUSR | S_IWUSR);
  }
  return {};
}

void closeFile(std::intptr_t file) {
  ::close(logDescriptor(file));
}

bool isDiskFile(std::intptr_t file) {
  struct stat facts {};
  return ::fstat(logDescriptor(file), &facts) == 0 && S_ISREG(facts.st_mode);
}

std::uint64_t sizeOf(std::intptr_t file) {
  struct stat facts {};
  return ::fstat(logDescriptor(file), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

std::error_code writeSome(std::intptr_t file, std::string_view text, std::size_t& written) {
  const ssize_t some = ::write(logDescriptor(file), text.data(), text.size());
  if (some < 0) return errno == EINTR ? std::error_code() : lastError();
  written += static_cast<std::size_t>(some);
  return {};
}

#endif

std::filesystem::path withSuffix(const std::filesystem::path& path, const char* suffix) {
  std::filesystem::path longer = path;
  return longer += suffix;
}

}  // namespace

AppendFile& AppendFile::operator=(AppendFile&& other) noexcept {
  std::swap(m_handle, other.m_handle);
  return *this;
}

std::error_code AppendFile::open(const std::filesystem::path& path) {
  close();
  return openFile(path, false, m_handle);
}

std::error_code AppendFile::make(const std::filesystem::path& path) {
  close();
  return openFile(path, true, m_handle);
}

void AppendFile::close() {
  if (isOpen()) closeFile(m_handle);
  m_handle = kNone;
}

bool AppendFile::isRegular() const {
  return isDiskFile(m_handle);
}

std::uint64_t AppendFile::size() const {
  return sizeOf(m_handle);
}

std::error_code AppendFile::write(std::string_view text, std::size_t& written) {
  for (written = 0; written < text.size();) {
    if (const std::error_code failure = writeSome(m_handle, text.substr(written), written)) return failure;
  }
  return {};
}

std::string LogFile::open() {
  AppendFile opened;
  if (const std::error_code failure = opened.open(m_path)) {
    return fmt::format("the log file {} cannot be opened: {}", programs::fromPath(m_path), failure.message());
  }
  m_file = std::move(opened);
  m_isRegular = m_file.isRegular();
  m_size = m_isRegular ? m_file.size() : 0;
  m_isLineCut = false;
  return {};
}

void LogFile::reopenNow() {
  if (const std::string failure = open(); !failure.empty()) {
    m_reopenFailure = fmt::format("{}; the file that was open before is written on", failure);
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
  return fmt::format("the log is full and cannot be renamed to {}: {}", programs::fromPath(withSuffix(m_path, ".1")),
                     failure.message());
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
