#include <cstdio>
#include <string>

// A converter that is called as the installed one is: ps2pdf.exe "<file.ps>" writes <file.pdf>. The PDF is always the
// same.
int main(int count, char** arguments) {
  if (count != 2) return 1;
  std::string path = arguments[1];
  const std::size_t extension = path.rfind(".ps");
  if (extension == std::string::npos) return 1;
  path.replace(extension, 3, ".pdf");
  std::FILE* pdf = std::fopen(path.c_str(), "wb");
  if (pdf == nullptr) return 1;
  std::fputs("%PDF-1.4\nstand-in\n%%EOF\n", pdf);
  std::puts("converted");
  return std::fclose(pdf) == 0 ? 0 : 1;
}
