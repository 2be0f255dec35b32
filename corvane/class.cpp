#include "corvane/class.h"

#include <algorithm>

int CS_Class::getSchema(int peerSchema) const {
  return std::min(currentSchema(), peerSchema);
}
