#pragma once

#include "protocol/names.h"

#include <string>

namespace protocol {

// The version of everything that is built here, as people read it: "4.0.1.0". Any thread.
inline std::string versionText() {
  return std::to_string(kVersion.major) + "." + std::to_string(kVersion.minor) + "." +
         std::to_string(kVersion.revision) + "." + std::to_string(kVersion.build);
}

// What a program answers to --version: its name and that.
inline std::string versionLine(const std::string& program) {
  return program + " " + versionText();
}

// Of that option, in every program's help.
inline constexpr char kVersionHelp[] = "print the name and the version, and exit";

}  // namespace protocol
