#pragma once

#include <memory>
#include <string>
#include <vector>

namespace admin {

// One thing that installing does. Steps run in order; when one fails, those that were performed are undone in reverse,
// and the machine is as it was before.
class InstallStep {
 public:
  virtual ~InstallStep() = default;
  // What it does, in words, as in "copy MgPrintMon.dll to C:\Windows\system32".
  virtual std::string name() const = 0;
  // Everything is as this step would leave it.
  virtual bool isDone() const = 0;
  // Throws a Failure after leaving nothing behind itself.
  virtual void perform() = 0;
  // After perform() only. Throws a Failure when the machine cannot be brought back.
  virtual void undo() = 0;
  // The installation is complete: what undo() would have needed may go.
  virtual void commit() {}
};

using InstallSteps = std::vector<std::unique_ptr<InstallStep>>;

// Performs the steps that are not done and gives their names, empty when there was nothing to do. All or nothing: a
// failure names the step and its error, after the others have been undone; what could not be undone is named as well.
std::vector<std::string> performAll(const InstallSteps& steps);

}  // namespace admin
