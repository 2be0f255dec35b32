#pragma once

#include "corvane/records/shared_log_file.h"

#include <ostream>
#include <streambuf>
#include <string>

namespace admin {

// Where a command writes that runs as a service and has no terminal: a file that is appended to, each line with its
// time in front, and that becomes "<name>.1" at 8 MiB. Its folder is made where it is missing. Belongs to one thread.
class ServiceLog : private std::streambuf {
 public:
  // What the file does not take is lost; isWritable() tells whether it takes anything.
  explicit ServiceLog(const std::wstring& file);

  std::ostream& stream() { return m_stream; }
  bool isWritable() const { return m_isWritable; }

 private:
  int_type overflow(int_type character) override;

  corvane::SharedLogFile m_file;
  bool m_isWritable = false;
  std::string m_line;
  std::ostream m_stream{this};
};

}  // namespace admin
