#pragma once

#include <functional>
#include <string>

namespace admin {

// A file to print as it is, through the spooler of this machine.
struct RawDocument {
  std::wstring printer;
  std::wstring file;
  std::wstring title;
  short copies = 1;
};

// Told how many bytes of how many the spooler has.
using TellProgress = std::function<void(unsigned long long done, unsigned long long all)>;

// A document that the spooler has.
struct SpooledDocument {
  unsigned long job = 0;
  // Not 0 when the spooler said at the document's end that something went wrong: it has the document all the same, and
  // the notice of the job says more.
  unsigned long endError = 0;
};

// Hands the file to the spooler. Throws a Failure; a document that broke off is taken back.
SpooledDocument printDocument(const RawDocument& document, const TellProgress& tell);

}  // namespace admin
