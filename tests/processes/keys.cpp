#include "tests/processes/keys.h"

#include "tests/processes/child_process.h"
#include "tests/processes/scene.h"

#include <stdexcept>
#include <stdlib.h>

namespace tests {

namespace fs = std::filesystem;

Keys::Keys() {
  std::string pattern = (fs::temp_directory_path() / "mg_keys_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
  m_folder = pattern;
}

Keys::~Keys() {
  std::error_code ignored;
  fs::remove_all(m_folder, ignored);
}

std::string Keys::make(const std::string& name) const {
  ChildProcess maker({Scene::program("aps"), "--new-key", path(name)});
  if (maker.wait() != 0) throw std::runtime_error(maker.output());
  return path(name);
}

}  // namespace tests
