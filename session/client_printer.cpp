#include "session/client_printer.h"

ClientPrinter::~ClientPrinter() {
  delete[] extraData;
  extraData = nullptr;
}
