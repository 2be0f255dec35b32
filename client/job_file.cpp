#include "client/job_file.h"

#include "client/file_name.h"
#include "programs/paths.h"

#include <stdexcept>

namespace printclient {

JobFile::JobFile(const std::filesystem::path& folder, const std::string& temporaryName)
    : m_folder(folder),
      m_temporary(folder / programs::toPath(temporaryName)),
      m_file(std::make_unique<DiskFile>(m_temporary)) {}

JobFile::~JobFile() {
  m_file.reset();
  std::error_code ignored;
  std::filesystem::remove(m_temporary, ignored);
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

std::string JobFile::keepAs(std::string_view name, std::string_view extension) {
  flush();
  m_file->finish();
  for (int number = 1; number <= kMaxNumber; ++number) {
    std::string candidate = numberedName(name, extension, number);
    if (renameWithoutReplacing(m_temporary, m_folder / programs::toPath(candidate))) return candidate;
  }
  throw std::runtime_error("all names from \"" + numberedName(name, extension, 1) + "\" to \"" +
                           numberedName(name, extension, kMaxNumber) + "\" are taken");
}

}  // namespace printclient
