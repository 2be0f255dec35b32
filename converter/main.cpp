#include "converter/command.h"

int wmain(int count, wchar_t** arguments) {
  return mg::converter::runCommand(count, arguments);
}
