#pragma once

#include "admin/exit_code.h"

#include <stdexcept>
#include <string>

namespace admin {

// Why a command cannot go on: what is wrong and, in a sentence of its own, what to do next. UTF-8.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& what, std::string remedy)
      : std::runtime_error(what), m_code(code), m_remedy(std::move(remedy)) {}

  ExitCode code() const { return m_code; }
  const std::string& remedy() const { return m_remedy; }

 private:
  ExitCode m_code;
  std::string m_remedy;
};

}  // namespace admin
