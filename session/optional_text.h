#pragma once

#include "corvane/out_request.h"
#include "util/utl_string.h"

namespace mg {

// Writes whether there is a text, and the text only when it is not empty.
inline void writeOptionalText(CS_OutRequest& request, const UTL_String& text) {
  request.writeBoolean(!text.isEmpty());
  if (!text.isEmpty()) request.writeUTF(text.wide());
}

}  // namespace mg
