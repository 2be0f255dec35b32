#pragma once

// Makes one allocation with new fail, on the thread that made this object and for as long as it lives: the nth from
// now on, in both the throwing and the nothrow form; or that many in a row, for code that then tries with less. Linking
// the library mg_guarded_heap replaces new and delete of the whole test binary.
class FailingNew {
 public:
  explicit FailingNew(int nth, int inARow = 1);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  // Whether the chosen allocation, or the first of them, has come.
  bool hasFailed() const;

  // For as long as this lives, allocations of its thread neither fail nor count: a test facility that the code under
  // test calls is not part of that code.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    bool m_applies;
  };

  // Asked by new: whether the allocation that the thread is about to make is the chosen one.
  static bool failsNow() noexcept;
};
