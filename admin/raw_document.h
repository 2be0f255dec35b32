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

// Hands the file to the spooler and gives the number of the job. Throws a Failure; a document that broke off is taken
// back.
unsigned long printDocument(const RawDocument& document, const TellProgress& tell);

}  // namespace admin
