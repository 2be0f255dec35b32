#include "jobs/strip_escape_chars.h"

#include "corvane/trace_entry.h"

int StripEscapeChars(unsigned char* data, int length) {
  CS_TraceEntry trace(L"StripEscapeChars()");
  constexpr unsigned char kEscape = 0x1B;
  constexpr unsigned char kFirstTerminator = 0x3D;
  constexpr unsigned char kLastTerminator = 0x5A;
  if (data == nullptr || length <= 0) return 0;
  int kept = 0;
  for (int at = 0; at < length; ++at) {
    if (data[at] != kEscape) {
      data[kept++] = data[at];
      continue;
    }
    do {
      ++at;
    } while (at < length && (data[at] < kFirstTerminator || data[at] > kLastTerminator));
  }
  return kept;
}
