#pragma once

#include "util/utl_string.h"

#include <windows.h>

#include <array>

namespace mg {

// The directory for temporary files, terminated; empty when Windows names none or one too long for it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  const wchar_t* text() const { return m_text.data(); }
  bool isEmpty() const { return m_text[0] == L'\0'; }
  // False when Windows named no directory at all.
  bool isKnown() const { return m_length != 0; }

 private:
  std::array<wchar_t, MAX_PATH + 1> m_text{};
  DWORD m_length;
};

// Appends the name of a job's temporary file to the path: the directory, the job's name, "-", the tick count and the
// extension. The tick count is written as a signed number, so one of 2^31 milliseconds or more has a sign of its own.
void appendTemporaryPath(UTL_String& path, const TemporaryDirectory& directory, const UTL_String& jobName, DWORD ticks,
                         const wchar_t* extension);

}  // namespace mg
