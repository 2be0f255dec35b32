#pragma once

#include <string>

namespace mg::converter {

// Removes from a PDF what would make a viewer do anything but show it, so that a document cannot act on the reader's
// machine: actions that start programs, run scripts, open other files, send forms or play media; what runs when the
// file or a page is opened; embedded files; and links to anything but http, https, ftp, mailto and tel. Links within
// the document, links to the web and bookmarks stay.
//
// Names in the file are overwritten in place, so that its size and its reference table stay valid; the content of an
// embedded file becomes zeros. Returns how many names were overwritten. Throws a ConversionError when the file is
// incomplete (kIncomplete) or cannot be written (kFileSystem).
int disarmPdf(const std::wstring& path);

}  // namespace mg::converter
