#pragma once

#include <istream>

namespace mg::converter {

// What a document says about itself in its structuring comments, as far as it can be believed. Comments of documents
// that are embedded in it, and what stands in its data sections, are not its own.
struct Announcement {
  // "%%Pages:" with a number, in the header or, for "(atend)", in the trailer; -1 when there is none.
  int pages = -1;
  // "(atend)" was said in the header and nothing at the end.
  bool isPromised = false;
  // "%%Page:" comments with the numbers 1, 2, 3, ... in their place.
  int pageComments = 0;
  // "%%EOF" at the begin of a line, after the last page.
  bool hasEnd = false;
  // The file holds several documents one after the other, or one inside another without saying so: the counts of which
  // one these would be, nobody can know.
  bool isMixed = false;

  // The pages that are announced, or -1 when nothing can be believed. Comments of pages say more than a number that
  // contradicts them, which n-up programs and hand-made headers leave wrong.
  int expectedPages() const;
  // False when the file ends before the end that it announces.
  bool isWhole() const;
};

// Reads a document from its begin. Lines of any length, with any line end, are read in bounded memory. The stream must
// be open in binary mode; an error of it counts as the end.
Announcement readAnnouncement(std::istream& document);

}  // namespace mg::converter
