// The whole way: an application, the spooler, the module, aps, and from there over a long line to the printer on the
// desk of somebody who was invited.

#include "tests/end_to_end/fixture.h"
#include "tests/processes/keys.h"

#include <gmock/gmock.h>

namespace tests {
namespace {

using ::testing::HasSubstr;

// Made in front of the server that needs them.
struct KeysOfMonitor {
  KeysOfMonitor() { m_keys.make("monitor"); }
  std::vector<std::string> serverOptions() const {
    std::vector<std::string> options = m_keys.serverOptions();
    options.insert(options.end(), {"--listen-clients", "127.0.0.1:0"});
    return options;
  }

  const Keys m_keys;
};

class FarPaper : private KeysOfMonitor, public EndToEnd {
 protected:
  FarPaper() : EndToEnd(serverOptions()) {
    spooler.configure(scene.port(), root, scene.folder() / "module.log", m_keys.path("monitor"));
    const std::string line = scene.server().waitForLine("aps listens for print clients on ");
    const std::string port = line.substr(line.rfind(':') + 1);
    // 50 ms each way. The person has an invitation and nothing else.
    m_desk = std::make_unique<ChildProcess>(std::vector<std::string>{
        Scene::program("far_away"), port, "50", "0", Scene::program("paper_desk"), folder(), "sh", "-c",
        "exec " + Scene::program("printclient") + " --invitation \"$(" + Scene::program("aps") + " invite 5 --keys " +
            m_keys.folder() + " --address 127.0.0.1:$FAR_PORT)\""});
    m_desk->waitForLine("ready: the server knows \"desk (session 5)\"");
  }
  std::string folder() const { return scene.folder() / "desk"; }

  std::unique_ptr<ChildProcess> m_desk;
};

TEST_F(FarPaper, ThreeCopiesOfADrawingComeOutOfThePrinterOnTheDesk) {
  const auto application =
      spooler.draw("desk (session 5)", "Drawing", {"first page", "second page"}, {"--copies", "3"});
  EXPECT_EQ(application->wait(), 0) << application->output();
  const std::string paper = m_desk->waitForLine("paper: \"Drawing\", copies 3, ");
  const std::string file = paper.substr(paper.rfind(' ') + 1);
  EXPECT_THAT(outputOf({"pdfinfo", file}), HasSubstr("Pages:           2\n"));
  EXPECT_THAT(outputOf({"pdftotext", "-l", "1", file, "-"}), HasSubstr("first page"));
  EXPECT_THAT(outputOf({"pdftotext", "-f", "2", file, "-"}), HasSubstr("second page"));
}

}  // namespace
}  // namespace tests
