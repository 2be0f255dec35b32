#pragma once

#include <windows.h>
#include <winsplp.h>

#include <string>
#include <vector>

namespace mg::support {

// Wine 10 spools what a program draws as a metafile, which Wine's PostScript driver turns into PostScript when it is
// printed; Wine 8 has that done before it spools. So this has the driver print the metafile on a queue that nobody else
// uses, kCaptureQueue, whose jobs end in memory.
inline constexpr wchar_t kMetafileType[] = L"NT EMF 1.003";
inline constexpr wchar_t kCaptureQueue[] = L"mgtestproc capture";

// What a print processor is told of a document. A value of its own: what it was made from may go.
class OpenedDocument {
 public:
  explicit OpenedDocument(const PRINTPROCESSOROPENDATA& data);

  bool isMetafile() const { return m_datatype == kMetafileType; }
  bool isCaptured() const { return m_printer == kCaptureQueue; }
  // The PostScript of a metafile that was spooled under that name. Throws std::runtime_error.
  std::string postScript(const std::wstring& spooled) const;

 private:
  std::wstring m_datatype, m_printer, m_document;
  std::vector<BYTE> m_mode;  // DEVMODEW; may be empty
  DWORD m_job;
};

// Takes a document of the capture queue. Called within postScript(), in the thread that called it.
void capture(std::string bytes);

}  // namespace mg::support
