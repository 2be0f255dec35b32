#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace mg::support {

// A document as an application draws it: on each page a frame, a line of text and a picture.
struct Drawing {
  std::wstring title;
  std::vector<std::wstring> pages;  // the text of each page
};

// Prints the drawing through GDI and the printer's driver, with a device mode that asks for so many copies. Returns the
// job's number in this process's spooler; throws SystemFailure or std::runtime_error.
DWORD printDrawing(const std::wstring& printer, const Drawing& drawing, short copies);

}  // namespace mg::support
