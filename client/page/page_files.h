#pragma once

#include <string_view>

namespace printclient {

// The files of the page, as they stand beside this header; the build puts them into the program (embed.cmake).
extern const std::string_view kPageHtml;
extern const std::string_view kPageCss;
extern const std::string_view kPageScript;

}  // namespace printclient
