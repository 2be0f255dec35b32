#include "admin/install_step.h"

#include "admin/failure.h"

namespace admin {
namespace {

// What could not be undone, as sentences; empty when the machine is as it was.
std::string undoAll(const std::vector<InstallStep*>& performed) {
  std::string left;
  for (auto step = performed.rbegin(); step != performed.rend(); ++step) {
    try {
      (*step)->undo();
    } catch (const std::exception& failure) {
      left += " Could not be undone: " + (*step)->name() + ": " + failure.what() + ".";
    }
  }
  return left;
}

}  // namespace

std::vector<std::string> performAll(const InstallSteps& steps) {
  std::vector<std::string> names;
  std::vector<InstallStep*> performed;
  const InstallStep* current = nullptr;
  try {
    for (const auto& step : steps) {
      current = step.get();
      if (step->isDone()) continue;
      step->perform();
      performed.push_back(step.get());
      names.push_back(step->name());
    }
  } catch (const Failure& failure) {
    const std::string left = undoAll(performed);
    const std::string undone = left.empty() ? ". Nothing was changed." : "." + left;
    throw Failure(failure.code(), "could not " + current->name() + ": " + failure.what() + undone, failure.remedy());
  } catch (...) {
    undoAll(performed);
    throw;
  }
  for (InstallStep* step : performed)
    step->commit();
  return names;
}

}  // namespace admin
