#include "util/text_buffer.h"
#include "util/utl_string.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace {

// va_end on every way out, the exceptions included.
class Arguments {
 public:
  Arguments() = default;
  ~Arguments() { va_end(list); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  va_list list;
};

// The run time ends the process when a bounded format finds no room for its terminator, so the room is checked before.
std::size_t checkedFit(int needed, std::size_t size) {
  if (needed < 0 || static_cast<std::size_t>(needed) >= size) throw UTL_Exception(mg::status::kFailure);
  return static_cast<std::size_t>(needed);
}

}  // namespace

void UTL_String::formatNarrow(std::size_t size, const char* format, ...) {
  if (format == nullptr) throw UTL_Exception(mg::status::kFailure);
  Arguments arguments;
  va_start(arguments.list, format);
  Arguments measured;
  va_copy(measured.list, arguments.list);
  checkedFit(_vscprintf(format, measured.list), size);
  auto buffer = makeTextBuffer<char>(size);
  const int written = _vsnprintf_s(buffer.get(), size, size, format, arguments.list);
  const std::size_t length = checkedFit(written, size);
  adopt(std::move(buffer), length);
}

void UTL_String::formatWide(std::size_t size, const wchar_t* format, ...) {
  if (format == nullptr) throw UTL_Exception(mg::status::kFailure);
  Arguments arguments;
  va_start(arguments.list, format);
  Arguments measured;
  va_copy(measured.list, arguments.list);
  checkedFit(_vscwprintf(format, measured.list), size);
  auto buffer = makeTextBuffer<wchar_t>(size);
  const int written = _vsnwprintf_s(buffer.get(), size, size, format, arguments.list);
  const std::size_t length = checkedFit(written, size);
  adopt(std::move(buffer), length);
}
