#pragma once

#include "util/utl_exception.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

struct HWND__;  // what a Windows window handle points to

// One text that can be handed out as UTF-16 and as bytes of the system's ANSI code page. Each form is converted from
// the other when it is first asked for, and kept. The getters are const and yet write then: one object must not be
// shared between threads without a lock.
//
// Conversion never fails on odd text: what the code page cannot express (unpaired surrogates included) becomes the
// code page's replacement in the narrow form. Operations that need memory throw UTL_Exception with
// mg::status::kNoMemory and leave the string as it was.
class UTL_String {
 public:
  UTL_String() noexcept = default;

  // A null text gives an empty string. The text is copied.
  explicit UTL_String(const wchar_t* text);
  static UTL_String fromNarrow(const char* text);

  UTL_String(const UTL_String& other);
  UTL_String(UTL_String&& other) noexcept;
  UTL_String& operator=(const UTL_String& other);
  UTL_String& operator=(UTL_String&& other) noexcept;
  virtual ~UTL_String() = default;

  // Replaces the text by a copy of text, which may lie inside this string; null empties it.
  UTL_String& operator=(const wchar_t* text);

  // The two forms, terminated and never null. A pointer holds until the string is next changed or destroyed.
  const wchar_t* wide() const;
  const char* narrow() const;

  // Characters of the form that the text was given in, terminator not counted.
  std::size_t length() const noexcept { return m_length; }
  bool isEmpty() const noexcept { return m_length == 0; }

  // Adds text behind the present one; the result is a wide text. The text may lie inside this string; null adds
  // nothing.
  void append(const wchar_t* text);
  void append(const UTL_String& text) { append(text.wide()); }

  // Replaces the text by what a printf-style format yields in a buffer of size characters, terminator included. A text
  // that does not fit, a null format or a size of 0 throws UTL_Exception with mg::status::kFailure and leaves the
  // string as it was: a cut path or command line would be worse than none. %s takes narrow text in a narrow format
  // and wide text in a wide one.
  void formatNarrow(std::size_t size, const char* format, ...);
  void formatWide(std::size_t size, const wchar_t* format, ...);

  // Replaces the text by a string resource of a loaded module, cut to size - 1 characters; a null module name is the
  // program itself. The wide form asks the module's own export "MGLoadStringW", which has the signature of LoadStringW,
  // when there is one. Throws UTL_Exception with mg::status::kFailure, and leaves the string as it was, when the module
  // is not loaded, has no such string, or size is 0.
  void loadResourceNarrow(const char* module, unsigned identifier, std::size_t size);
  void loadResourceWide(const wchar_t* module, unsigned identifier, std::size_t size);

  // Replaces each %NAME% of an environment variable by its value.
  void expandEnvironment();

  // Replaces a path by its short form. Throws UTL_Exception with mg::status::kFailure, and leaves the string as it was,
  // when there is no such path. An empty path stays empty.
  void shortenPath();

  // Replaces the text by that of a window, empty when it has none.
  void readWindowNarrow(HWND__* window);
  void readWindowWide(HWND__* window);

  // Change the case of each character of the form that the text was given in.
  void toLower();
  void toUpper();

  // The number that the text starts with, 0 when it starts with none.
  int toInteger() const;

  // The first character of the text that stands in the set, or null. The pointer is one into wide() or narrow().
  const wchar_t* findAnyOf(const wchar_t* set) const;
  const char* findAnyOf(const char* set) const;

 protected:
  // Which form the text was given in; the other one is derived from it.
  enum class Form : std::int32_t { kNarrow = 1, kWide = 2 };

  // Takes over a terminated buffer as the new text, in the form that the buffer has.
  void adopt(std::unique_ptr<wchar_t[]> text, std::size_t length) noexcept;
  void adopt(std::unique_ptr<char[]> text, std::size_t length) noexcept;
  Form primaryForm() const noexcept { return m_primary; }

 private:
  mutable std::unique_ptr<wchar_t[]> m_wide;
  mutable std::unique_ptr<char[]> m_narrow;
  std::size_t m_length = 0;
  Form m_primary = Form::kWide;
};

// Two strings are equal when both are empty, or when their lengths are equal and their narrow forms are the same bytes.
// Case counts. Texts that the ANSI code page cannot tell apart are therefore equal when their lengths are.
bool operator==(const UTL_String& left, const UTL_String& right);

// Orders by the wide forms, as wcscmp does.
bool operator<(const UTL_String& left, const UTL_String& right);

// A buffer of size characters for UTL_String and its kin, contents undefined. Throws UTL_Exception with
// mg::status::kNoMemory when there is no memory, or when no memory could ever hold that many.
template <typename Char>
std::unique_ptr<Char[]> makeTextBuffer(std::size_t size) {
  // Even the nothrow form of new throws when the size in bytes is beyond what it can express.
  if (size > static_cast<std::size_t>(PTRDIFF_MAX) / 2 / sizeof(Char)) throw UTL_Exception(mg::status::kNoMemory);
  std::unique_ptr<Char[]> buffer(new (std::nothrow) Char[size]);
  if (buffer == nullptr) throw UTL_Exception(mg::status::kNoMemory);
  return buffer;
}
