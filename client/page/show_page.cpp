#include "client/page/show_page.h"

#include "client/page/page_link.h"

#include <fmt/format.h>
#include <vector>

namespace printclient {

ShownPage showPage(const std::filesystem::path& folder,
                   const std::function<std::string(const std::filesystem::path&)>& open) {
  const std::vector<FoundPage> pages = findPages(folder);
  if (pages.empty()) {
    return {1,
            "printclient: no print client of yours is running with a page; start one (without --no-page), and then "
            "call printclient --show again\n"};
  }
  std::string others;
  for (std::size_t i = 1; i < pages.size(); ++i)
    others += fmt::format("another print client of yours has its page at {}\n", pages[i].address);
  const std::string why = open(pages.front().document);
  if (why.empty()) return {0, "your print jobs are opened in the browser\n" + others};
  return {1, fmt::format("printclient: the browser cannot be opened: {}; open this address in a browser on this "
                         "machine, and show it to nobody:\n{}\n{}",
                         why, pages.front().address, others)};
}

}  // namespace printclient
