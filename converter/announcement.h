#pragma once

#include <istream>

namespace mg::converter {

// What a document says about itself in its structuring comments, as far as that is credible. Comments of embedded
// documents and the content of data sections do not count.
struct Announcement {
  // "%%Pages:" with a number, in the header or, for "(atend)", in the trailer; -1 when there is none.
  int pages = -1;
  // The header has "(atend)", and no number follows at the end.
  bool isPromised = false;
  // "%%Page:" comments with the numbers 1, 2, 3, ... in this order.
  int pageComments = 0;
  // "%%EOF" at the beginning of a line, after the last page.
  bool hasEnd = false;
  // The file holds several documents one after the other, or one inside another without marking it, so the counts
  // cannot be assigned to one of them.
  bool isMixed = false;

  // The announced number of pages, or -1 when none is credible. Page comments take precedence over a number that
  // contradicts them: n-up programs and hand-made headers leave that number wrong.
  int expectedPages() const;
  // False when the file ends before the end that it announces.
  bool isWhole() const;
};

// Reads a document from its beginning, in bounded memory whatever the lengths of its lines and with any line ends. The
// stream must be open in binary mode; a read error counts as the end.
Announcement readAnnouncement(std::istream& document);

}  // namespace mg::converter
