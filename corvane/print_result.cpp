#include "corvane/print_result.h"

namespace corvane {

const wchar_t* printResultText(int result) {
  switch (result) {
    case kPrinted:
      return L"The print client has the whole document.";
    case kNoData:
      return L"The print client got no data.";
    case kDiskFailure:
      return L"The print client could not write the document.";
    case kIncompletePdf:
      return L"The print client got a PDF without its end.";
    case kNoJob:
      return L"The print client does not know the job.";
    case kBrokenData:
      return L"The print client got a piece of data that was not as long as it said.";
    default:
      return L"The print client did not take the document.";
  }
}

}  // namespace corvane
