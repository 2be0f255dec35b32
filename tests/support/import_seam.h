#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

// Stands between the code under test and a Windows call, without a change to that code: a call goes through a pointer
// named __imp_Name, and a test binary that defines this pointer itself sees every call of the binary with its exact
// arguments.
//
//   MG_IMPORT_SEAM(L"advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED)      // once per binary, at file scope
//
//   ImportSeams seams;                                                         // in a test
//   RegCreateKeyExWSeam.watch = [&](HKEY root, ...) { ... };
//   RegCreateKeyExWSeam.fail(1, ERROR_ACCESS_DENIED);                          // the first call from now on
//   seams.failNth(3);                                                          // the third call of any seam
//   EXPECT_EQ(seams.calls(), ...);
//
// A call that is made to fail does not reach Windows. A function without a result cannot fail: it is watched and not
// written down. Watching, failing and replacing are for one test thread at a time; calls from other threads pass, and
// are written down in the order in which they come. A seam allocates nothing while it is called.
namespace import_seam {

// What all seams of a binary have in common.
class Seam {
 public:
  Seam();
  virtual ~Seam() = default;
  Seam(const Seam&) = delete;
  Seam& operator=(const Seam&) = delete;
  virtual void restore() = 0;

 protected:
  // Writes the call down; true when it is the one that was chosen to fail for all seams together.
  static bool enter(const char* function);
  // The error code that the chosen call fails with.
  static DWORD chosenError();
  // The function of Windows itself; ends the process when there is none.
  static void* lookUp(const wchar_t* module, const char* function);
};

template <class Tag, class Signature>
class FunctionSeam;

template <class Tag, class Result, class... Arguments>
class FunctionSeam<Tag, Result(Arguments...)> : public Seam {
  static constexpr bool kHasResult = !std::is_void_v<Result>;
  using Stored = std::conditional_t<kHasResult, Result, int>;

 public:
  explicit FunctionSeam(Stored failure) : m_failure(failure) { s_self = this; }
  ~FunctionSeam() override { s_self = nullptr; }

  // Called with the arguments of every call, before anything else happens to it.
  std::function<void(Arguments...)> watch;
  // When it is set, calls for which it answers false go to Windows as though there were no seam.
  std::function<bool(Arguments...)> concerns;
  // Called when the call chosen for all seams is this one: for a call that does its work and fails all the same, such
  // as one that closes something.
  std::function<void(Arguments...)> whenChosen;
  // Called instead of Windows when it is set.
  std::function<Result(Arguments...)> replacement;

  // Lets the nth call from now on answer with result, with the given last error.
  void fail(int nth, Stored result, DWORD lastError = 0) {
    m_failIn = nth;
    m_result = result;
    m_lastError = lastError;
  }

  void restore() override {
    watch = nullptr;
    concerns = nullptr;
    whenChosen = nullptr;
    replacement = nullptr;
    m_failIn = 0;
  }

  static Result real(Arguments... arguments) {
    static void* const function = lookUp(Tag::kModule, Tag::kFunction);
    return reinterpret_cast<Result(WINAPI*)(Arguments...)>(function)(arguments...);
  }

  static Result WINAPI call(Arguments... arguments) {
    // Start-up and the end of the process call before the seam exists and after it is gone.
    if (s_self == nullptr) return real(arguments...);
    FunctionSeam& self = *s_self;
    if (self.concerns && !self.concerns(arguments...)) return real(arguments...);
    if constexpr (kHasResult) {
      const bool chosen = enter(Tag::kFunction);
      if (self.watch) self.watch(arguments...);
      if (self.m_failIn > 0 && --self.m_failIn == 0) {
        SetLastError(self.m_lastError);
        return self.m_result;
      }
      if (chosen) {
        if (self.whenChosen) self.whenChosen(arguments...);
        const DWORD error = chosenError();
        SetLastError(error);
        // A status is its own error code; a long of another meaning fails with a number below 0.
        if constexpr (std::is_same_v<Result, LSTATUS>) {
          if (self.m_failure > 0) return static_cast<LSTATUS>(error);
        }
        return self.m_failure;
      }
    } else {
      if (self.watch) self.watch(arguments...);
    }
    return self.replacement ? self.replacement(arguments...) : real(arguments...);
  }

 private:
  static inline FunctionSeam* s_self = nullptr;
  Stored m_failure;
  int m_failIn = 0;
  Stored m_result = {};
  DWORD m_lastError = 0;
};

}  // namespace import_seam

// One test's use of the seams: everything is as Windows has it before and after.
class ImportSeams {
 public:
  ImportSeams();
  ~ImportSeams();
  ImportSeams(const ImportSeams&) = delete;
  ImportSeams& operator=(const ImportSeams&) = delete;

  // The names of the functions called so far, in order; the first 16384.
  std::vector<std::string> calls() const;
  // Lets the nth call of any seam that the calling thread makes from now on fail: with the error itself where the
  // function returns a status, otherwise with that seam's own failure and the error as last error. 0 fails none.
  void failNth(int nth, DWORD error = ERROR_ACCESS_DENIED);
  // The same for the nth call and all of that thread's behind it, as though its process had been killed there.
  void failFrom(int nth, DWORD error = ERROR_ACCESS_DENIED);
  // Whether the call chosen by either has come.
  bool hasFailed() const;
};

#define MG_IMPORT_SEAM(module, function, failure)                                              \
  struct function##Tag {                                                                       \
    static constexpr const wchar_t* kModule = module;                                          \
    static constexpr const char* kFunction = #function;                                        \
  };                                                                                           \
  static import_seam::FunctionSeam<function##Tag, decltype(function)> function##Seam(failure); \
  extern "C" {                                                                                 \
  decltype(&function) __imp_##function = &decltype(function##Seam)::call;                      \
  }

// The same for a function whose header does not say that it is imported, as all of winspool.h: the code calls it by its
// plain name, so that name is the seam's as well and goes on through the pointer.
#define MG_PLAIN_SEAM(module, function, failure) \
  MG_IMPORT_SEAM(module, function, failure)      \
  __asm__(".text\n.globl " #function "\n" #function ":\n  jmp *__imp_" #function "(%rip)\n");
