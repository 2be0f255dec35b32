#include "client/job_file.h"

#include "client/file_name.h"
#include "programs/text.h"

#include <limits>
#include <stdexcept>

namespace printclient {
namespace {

// Names that are tried; others may take a name after it was seen to be free.
constexpr int kMaxAttempts = 1000;

[[noreturn]] void throwNoName(std::string_view name, std::string_view extension) {
  throw std::runtime_error("there is no free name for \"" + numberedName(name, extension, 1) + "\"");
}

}  // namespace

JobFile::JobFile(const std::filesystem::path& folder, const std::string& temporaryName)
    : m_folder(folder), m_file(std::make_unique<DiskFile>(pathOf(temporaryName))) {}

JobFile::~JobFile() = default;

std::filesystem::path JobFile::pathOf(const std::string& name) const {
  return m_folder / programs::toPath(name);
}

void JobFile::append(std::span<const unsigned char> bytes) {
  if (m_buffer.size() + bytes.size() > kBufferBytes) flush();
  if (bytes.size() >= kBufferBytes / 2) {
    flush();
    m_file->write(bytes);
  } else {
    m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
  }
}

void JobFile::flush() {
  if (m_buffer.empty()) return;
  m_file->write(m_buffer);
  m_buffer.clear();
}

int JobFile::freeNumber(std::string_view name, std::string_view extension) const {
  const auto isTaken = [&](int number) {
    std::error_code ignored;  // a name that cannot be looked at is found out by renaming
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

std::string JobFile::keepAs(std::string_view name, std::string_view extension) {
  flush();
  m_file->sync();
  int number = 1;
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
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
