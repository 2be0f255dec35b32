#pragma once

#include <set>
#include <string>
#include <string_view>

namespace admin {

// Takes out of texts what a developer need not see and nobody outside may: names of users, titles of documents, keys.
// What is left is said to be "(left out)". Belongs to one thread.
//
// What is taken out: the names that it was told, wherever they stand as words; the name of a user's folder in paths;
// anything as long as a key or an invitation in hexadecimal digits; and who is named as having access to a folder or as
// having canceled a job. Of a
// line of a log, besides, all between its first and its last quotation mark, because a title may itself have some; and
// the whole line where what a document says or is called stands without any, or where it is no text.
class Scrubber {
 public:
  // A user with or without a domain, or a title. Texts of fewer than two characters are too common to be known by.
  void know(const std::wstring& name);
  // The users who have a folder on this machine, and the one who runs this.
  void knowUsersHere();

  std::string text(std::string_view text) const;
  // A line of a log, without its end; empty when it is left out.
  std::string logLine(std::string_view line) const;
  // A whole log. How many lines were left out stands at the end.
  std::string log(std::string_view log) const;

 private:
  // Longer ones first, so that a name within another one leaves nothing of it.
  struct Longer {
    bool operator()(const std::string& left, const std::string& right) const {
      return left.size() != right.size() ? left.size() > right.size() : left < right;
    }
  };
  void remember(const std::wstring& name);

  std::set<std::string, Longer> m_names;  // UTF-8, ASCII letters in lower case, also as JSON writes them
};

}  // namespace admin
