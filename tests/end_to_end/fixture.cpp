#include "tests/end_to_end/fixture.h"

#include "tests/processes/process_table.h"

#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <thread>

namespace tests {

namespace fs = std::filesystem;

EndToEnd::EndToEnd(const std::vector<std::string>& serverOptions)
    : spooler(Spooler::get()), scene(serverOptions), root(scene.folder() / "root") {
  // What a test that failed has left in the prefix, in this run or an earlier one, is not this test's.
  for (const std::string& path : spooler.leftovers())
    fs::remove_all(path);
  fs::create_directories(root / "Programs");
  fs::copy_file(fs::path(MG_WINDOWS_BIN_DIR) / "ps2pdf.exe", root / "Programs" / "ps2pdf.exe");
  spooler.configure(scene.port(), root, scene.folder() / "module.log");
}

void EndToEnd::TearDown() {
  EXPECT_THAT(spooler.leftovers(), testing::IsEmpty());
  if (HasFailure()) std::cout << "the module's log:\n" << moduleLog() << "the server:\n" << scene.server().output();
}

fs::path EndToEnd::file(const std::string& name, const std::string& content) const {
  fs::path path = scene.folder() / name;
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string EndToEnd::page(const std::string& text) {
  return "%!PS-Adobe-3.0\n/Helvetica findfont 24 scalefont setfont 72 700 moveto (" + text + ") show showpage\n";
}

std::string EndToEnd::moduleLog() const {
  std::ifstream in(scene.folder() / "module.log", std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void EndToEnd::waitForModuleLog(const std::string& text) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (moduleLog().find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("never logged: " + text);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::string EndToEnd::outputOf(const std::vector<std::string>& command) {
  ChildProcess process(command);
  EXPECT_EQ(process.wait(), 0) << process.output();
  return process.output();
}

void EndToEnd::expectNotPrinted(ChildProcess& print, const std::string& saying, int session) {
  EXPECT_EQ(print.wait(), 1);
  EXPECT_THAT(print.output(), testing::HasSubstr(saying));
  // What had begun to come is removed when the client learns that the job goes no further.
  comesTrue([&] { return scene.files(session).empty(); }, 20);
  EXPECT_THAT(scene.files(session), testing::IsEmpty());
}

}  // namespace tests
