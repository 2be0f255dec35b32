#include "protocol/names.h"

namespace protocol {

constinit const CS_Version kVersion{MG_VERSION_NUMBERS};

}  // namespace protocol
