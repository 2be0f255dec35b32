#pragma once

// Makes one allocation with new fail, on the thread that made this object and for as long as it lives: the nth from
// now on, in both the throwing and the nothrow form. Linking the library mg_failing_new replaces new and delete of the
// whole test binary.
class FailingNew {
 public:
  explicit FailingNew(int nth);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  // Whether the chosen allocation has come.
  bool hasFailed() const;
};
