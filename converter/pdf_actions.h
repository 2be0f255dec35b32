#pragma once

#include <string>

namespace mg::converter {

// Takes out of a PDF what would make the reader's program do something else than show it, so that a document cannot
// act on the machine of whoever prints it: actions that start programs, run scripts, open other files, send forms or
// play media; what happens by itself when the file or a page is opened; files that are embedded; and links to anything
// but http, https, ftp, mailto and tel. Links within the document, links to the web and bookmarks stay.
//
// Names in the file are overwritten in place, so that it keeps its size and its reference table; the content of an
// embedded file becomes zeros. Returns how many were taken out. Throws a ConversionError when the file is not whole
// (kIncomplete) or cannot be written (kFileSystem).
int disarmPdf(const std::wstring& path);

}  // namespace mg::converter
