#include "tests/support/jobs/file_read_seam.h"

#include "tests/support/import_seam.h"

MG_PLAIN_SEAM(L"msvcrt.dll", fread, 0)

namespace file_read_seam {

void replace(Read read) {
  freadSeam.replacement = std::move(read);
}

std::size_t real(void* to, std::size_t size, std::size_t count, std::FILE* file) {
  return freadSeam.real(to, size, count, file);
}

}  // namespace file_read_seam
