#pragma once

#include "util/utl_exception.h"

namespace tests {

// The code of the UTL_Exception that the call throws; -1 when it throws none.
template <typename Call>
int codeOf(Call call) {
  try {
    call();
  } catch (const UTL_Exception& caught) {
    return caught.code();
  }
  return -1;
}

}  // namespace tests
