#include "jobs/unconverted.h"

#include <algorithm>
#include <string_view>

namespace mg {
namespace {

// What drivers put in front is a few lines.
constexpr std::size_t kFront = 4096;

bool begins(std::string_view text, std::string_view with) {
  return text.substr(0, with.size()) == with;
}

}  // namespace

const wchar_t* whyUnconverted(const unsigned char* data, std::size_t size) noexcept {
  if (data == nullptr) size = 0;
  const std::string_view text(reinterpret_cast<const char*>(data), std::min(size, kFront));
  const bool hasPostScript = text.find("%!PS") != std::string_view::npos;
  if (hasPostScript && (begins(text, "\x1b%-12345X") || begins(text, "@PJL") || begins(text, "\x1b"))) {
    return L"sent as it came: not recognised as PostScript; printer commands (PJL) stand in front of it. Turn them off "
           L"in "
           L"the driver's settings, or give the printer a driver without them.";
  }
  if (hasPostScript && begins(text, "\x04")) {
    return L"sent as it came: not recognised as PostScript; a Ctrl-D stands in front of it. Turn \"Send CTRL-D before "
           L"each job\" off in the driver's settings.";
  }
  if (begins(text, "%!")) {
    return L"sent as it came: not recognised as PostScript; its first line does not begin with \"%!PS-\". Let the "
           L"application or driver write PostScript with structuring comments (\"%!PS-Adobe-3.0\").";
  }
  if (hasPostScript) {
    return L"sent as it came: not recognised as PostScript; something stands in front of its \"%!PS\". Let the driver "
           L"or "
           L"port send the document alone, or give the printer another PostScript driver.";
  }
  if (begins(text, "%PDF-")) return L"sent as it came: it is a PDF already.";
  return L"sent as it came: not recognised as PostScript. To get a PDF, give the printer a PostScript driver.";
}

}  // namespace mg
