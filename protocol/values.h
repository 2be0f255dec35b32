#pragma once

#include "corvane/components/class.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/value_reader.h"
#include "corvane/wire/value_writer.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// The values of a message in their order. A message names them once, in a function for both directions:
//
//   static void layout(auto& message, auto& wire) { wire(message.printer, message.processId, message.versions); }
//
// What travels for a member follows from its type: an integer for a number or an enumeration, two for one of
// 64 bits with the lower half in front, a boolean, a text, a
// boolean and perhaps a value for an optional one, the values of a message inside a message. Lists say how their end is
// found. Everything throws CS_Exception: writing for a value past a bound, reading for anything but what is written.
namespace protocol {

// What a list that is read may say of its length, and the exception for one that says something else.
struct Limit {
  int most;
  int number = corvane::kProtocolViolation;
  const wchar_t* text = L"a list of %d entries";
};

class Writer {
 public:
  explicit Writer(corvane::ValueWriter& to) : m_to(to) {}

  template <class... T>
  void operator()(const T&... values) {
    (put(values), ...);
  }
  // A text that may be missing, and counts as missing when it is empty: a boolean and perhaps the text. Null counts as
  // empty.
  void ifAny(const std::wstring& text) { ifAny(text.c_str()); }
  void ifAny(const wchar_t* text);
  // What an earlier version does not send, at the end of a message.
  template <class Rest>
  void ifMore(const Rest& rest) {
    rest();
  }
  // A list with its length in front.
  template <class T>
  void counted(const std::vector<T>& list, const Limit&) {
    put(static_cast<int>(list.size()));
    for (const T& value : list)
      put(value);
  }
  // A list with true in front of each value, and false behind the last.
  template <class T>
  void untilFalse(const std::vector<T>& list) {
    for (const T& value : list)
      (*this)(true, value);
    put(false);
  }

 private:
  void put(bool value) { m_to.writeBoolean(value); }
  void put(int value) { m_to.writeInt(value); }
  void put(std::int64_t value) {
    put(static_cast<int>(value & 0xffffffff));
    put(static_cast<int>(value >> 32));
  }
  void put(const std::wstring& text) { m_to.writeText(text.c_str()); }
  void put(const CS_ClassVersionMap& versions) { versions.write(m_to); }
  template <class T>
  void put(const std::optional<T>& value) {
    put(value.has_value());
    if (value) put(*value);
  }
  template <class T, std::size_t N>
  void put(const std::array<T, N>& values) {
    for (const T& value : values)
      put(value);
  }
  template <class A, class B>
  void put(const std::pair<A, B>& pair) {
    (*this)(pair.first, pair.second);
  }
  template <class T>
  void put(const T& value) {
    if constexpr (std::is_enum_v<T>) {
      put(static_cast<int>(value));
    } else {
      T::layout(value, *this);
    }
  }

  corvane::ValueWriter& m_to;
};

class Reader {
 public:
  explicit Reader(corvane::ValueReader& from) : m_from(from) {}

  template <class... T>
  void operator()(T&... values) {
    (take(values), ...);
  }
  void ifAny(std::wstring& text);
  template <class Rest>
  void ifMore(const Rest& rest) {
    if (!m_from.atEnd()) rest();
  }
  template <class T>
  void counted(std::vector<T>& list, const Limit& limit) {
    for (int left = takeCount(limit); left > 0; --left)
      take(list.emplace_back());
  }
  template <class T>
  void untilFalse(std::vector<T>& list) {
    while (m_from.readBoolean())
      take(list.emplace_back());
  }

 private:
  int takeCount(const Limit& limit);
  void take(bool& value) { value = m_from.readBoolean(); }
  void take(int& value) { value = m_from.readInt(); }
  void take(std::int64_t& value) {
    const auto low = static_cast<std::uint32_t>(m_from.readInt());
    value = (static_cast<std::int64_t>(m_from.readInt()) << 32) | low;
  }
  // Up to its first null character; what may follow is not used.
  void take(std::wstring& text);
  void take(CS_ClassVersionMap& versions) { versions.read(m_from); }
  template <class T>
  void take(std::optional<T>& value) {
    value.reset();
    if (m_from.readBoolean()) take(value.emplace());
  }
  template <class T, std::size_t N>
  void take(std::array<T, N>& values) {
    for (T& value : values)
      take(value);
  }
  template <class A, class B>
  void take(std::pair<A, B>& pair) {
    (*this)(pair.first, pair.second);
  }
  template <class T>
  void take(T& value) {
    if constexpr (std::is_enum_v<T>) {
      value = static_cast<T>(m_from.readInt());
    } else {
      T::layout(value, *this);
    }
  }

  corvane::ValueReader& m_from;
};

inline void Writer::ifAny(const wchar_t* text) {
  const bool isAny = text != nullptr && *text != L'\0';
  put(isAny);
  if (isAny) m_to.writeText(text);
}

inline void Reader::ifAny(std::wstring& text) {
  text.clear();
  if (m_from.readBoolean()) take(text);
}

inline void Reader::take(std::wstring& text) {
  text = m_from.readText();
  if (const auto end = text.find(L'\0'); end != std::wstring::npos) text.resize(end);
}

inline int Reader::takeCount(const Limit& limit) {
  const int count = m_from.readInt();
  if (count < 0 || count > limit.most) throw CS_Exception(limit.number, limit.text, count);
  return count;
}

template <class Message>
void write(corvane::ValueWriter& to, const Message& message) {
  Writer wire(to);
  wire(message);
}

// After a failure the message has what came before it.
template <class Message>
void read(corvane::ValueReader& from, Message& message) {
  Reader wire(from);
  wire(message);
}

template <class Message>
Message read(corvane::ValueReader& from) {
  Message message;
  read(from, message);
  return message;
}

}  // namespace protocol
