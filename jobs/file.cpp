#include "jobs/file.h"

namespace mg {

long measure(std::FILE* file) {
  std::fseek(file, 0, SEEK_END);
  const long length = std::ftell(file);
  std::rewind(file);
  return length;
}

}  // namespace mg
