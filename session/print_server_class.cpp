#include "session/print_server_class.h"

#include "session/print_server.h"

CS_Component* PrintServerClass::createInstance() {
  try {
    return new PrintServer;
  } catch (...) {
    return nullptr;
  }
}
