#include <cstdio>
#include <cstring>
#include <string>

// A converter that is called as the installed one is: ps2pdf.exe "<file.ps>" writes <file.pdf>. The PDF is always the
// same, and there is none for a document that says "refuse" after its signature.
int main(int count, char** arguments) {
  if (count != 2) return 1;
  std::string path = arguments[1];
  const std::size_t extension = path.rfind(".ps");
  if (extension == std::string::npos) return 1;
  char head[17] = {};
  std::FILE* document = std::fopen(path.c_str(), "rb");
  if (document == nullptr) return 1;
  std::fread(head, 1, sizeof head - 1, document);
  std::fclose(document);
  if (std::strstr(head, "refuse") != nullptr) {
    std::puts("refused");
    return 1;
  }
  path.replace(extension, 3, ".pdf");
  std::FILE* pdf = std::fopen(path.c_str(), "wb");
  if (pdf == nullptr) return 1;
  std::fputs("%PDF-1.4\nstand-in\n%%EOF\n", pdf);
  std::puts("converted");
  return std::fclose(pdf) == 0 ? 0 : 1;
}
