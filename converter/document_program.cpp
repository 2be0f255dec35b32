#include "converter/document_program.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string_view>

namespace mg::converter {
namespace {

// A document may redefine any name and undo any change with `restore`. So the state is kept in a dictionary that
// `restore` leaves alone (global memory), and everything is bound before the document begins: operators by `bind`, the
// rest as objects (`//`). The names made here are gone when it runs.
//
// The document is run as what "-_" runs: Ghostscript's own words for "run the standard input", which are looked up by
// name. Only behind that option it reads the standard input in blocks; before, each byte is a system call of its own.
constexpr char kProgram[] = R"(
<</.LockSafetyParams true>> setpagedevice
currentglobal true setglobal
userdict /mgstate 12 dict put
mgstate begin
  /done false def /errors 0 def /reported false def
  /first 160 string def /length 0 def /number 20 string def
  /marker (MARKER) def
end
setglobal
//$error /newerror false put

% string append -: adds as much to the first error's text as there is room for
userdict /mgappend {
  //mgstate /first get length //mgstate /length get sub 1 index length
  2 copy lt { pop } { exch pop } ifelse 0 exch getinterval
  dup //mgstate /first get exch //mgstate /length get exch putinterval
  length //mgstate /length get add //mgstate exch /length exch put
} bind put

% command errorname mgdescribe -: the text of an error, as in "undefined in foo"
userdict /mgdescribe {
  //mgstate /length 0 put
  dup length 60 gt { pop (error) } { 60 string cvs } ifelse //mgappend exec
  ( in ) //mgappend exec
  dup type dup /nametype eq exch /operatortype eq or {
    dup type /nametype eq { dup length 80 gt { pop (a long name) } if } if
    80 string cvs
  } { pop (-data-) } ifelse
  //mgappend exec
} bind put

% command errorname mgnote command
userdict /mgnote {
  //mgstate /errors get 0 eq {
    //mgstate /errors 1 put
    1 index exch dup /VMerror eq {pop pop} //mgdescribe ifelse
  } { pop } ifelse
} bind put

% Errors that Ghostscript meets itself while it looks for a file, a font or a feature are not the document's.
errordict {
  exch [/handleerror /interrupt /timeout /undefinedfilename /undefinedresource /invalidfileaccess /ioerror /invalidfont
    /configurationerror] false exch { 2 index eq or } forall
  { pop pop } {
    dup 3 1 roll mark 3 1 roll //mgnote /exec load 4 -1 roll /exec load ] cvx
    errordict 3 1 roll put
  } ifelse
} forall

% A call of handleerror reports an error, also when it was caught before.
userdict /mgreported { //$error /newerror get { //mgstate /reported true put } if } bind put
errordict /handleerror [ //mgreported /exec load errordict /handleerror get /exec load ] cvx put
userdict /handleerror [ //mgreported /exec load systemdict /handleerror get /exec load ] cvx put

% - mgrest n: what the document left unread: 0 nothing to speak of, 1 more than a few bytes, 2 a further page
userdict /mgrest {
  {
    (%stdin) (r) file dup 64 string readstring {
      (%%Page:) search { pop pop pop pop 2 } {
        pop dup 0 (%%Page:) /SubFileDecode filter flushfile read { pop 2 } { 1 } ifelse
      } ifelse
    } { pop pop 0 } ifelse
  } stopped { 0 } if
} bind put

% how mgfinish -: the last line
userdict /mgfinish {
  //mgstate /done get { pop } {
    //mgstate /done true put
    (\n) print //mgstate /marker get print
    { currentpagedevice dup /PageCount known { /PageCount get } { pop 0 } ifelse } stopped { 0 } if
    //mgstate /number get cvs print ( ) print
    dup print ( ) print
    (quit) eq { //mgrest exec } { 0 } ifelse //mgstate /number get cvs print ( ) print
    //mgstate /reported get { (reported ) } { (silent ) } ifelse print
    //mgstate /first get 0 //mgstate /length get getinterval print
    (\n) print flush
  } ifelse
} bind put

userdict /quit { (quit) //mgfinish exec systemdict /quit get exec } bind put

{
  userdict /.runstdin undef
  { (%stdin) (r) file cvx exec } stopped {
    //$error /newerror get {
      { //$error /command get //$error /errorname get
        dup /VMerror eq { pop pop (VMerror) //mgstate /length 0 put //mgappend exec } //mgdescribe ifelse
      } stopped pop
      (error) //mgfinish exec
    } { (stop) //mgfinish exec } ifelse
  } { (end) //mgfinish exec } ifelse
} bind
userdict begin
[/mgstate /mgappend /mgdescribe /mgnote /mgreported /mgrest /mgfinish] { currentdict exch undef } forall
/.runstdin exch def
end
)";

}  // namespace

std::string documentProgram(const std::string& marker) {
  std::string program = kProgram;
  return program.replace(program.find("MARKER"), 6, marker);
}

namespace {

// A job may print anything: only printable characters are repeated, and at most 200 of them.
std::string printable(std::string text) {
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text.substr(0, 200);
}

std::string_view lineAt(const std::string& said, size_t begin) {
  const size_t end = said.find_first_of("\r\n", begin);
  return std::string_view(said).substr(begin, end == std::string::npos ? end : end - begin);
}

std::string_view takeWord(std::string_view& line) {
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(line.size(), word.size() + 1));
  return word;
}

RunReport::Ending endingOf(std::string_view word) {
  if (word == "end") return RunReport::Ending::kEndOfDocument;
  if (word == "quit") return RunReport::Ending::kQuit;
  if (word == "error") return RunReport::Ending::kError;
  if (word == "stop") return RunReport::Ending::kStop;
  return RunReport::Ending::kUnknown;
}

}  // namespace

std::string readLastWords(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "";
  file.seekg(0, std::ios::end);
  const std::streamoff from = std::max<std::streamoff>(0, static_cast<std::streamoff>(file.tellg()) - kLastWords);
  file.seekg(from);
  std::string text(kLastWords, '\0');
  file.read(text.data(), kLastWords);
  text.resize(static_cast<size_t>(file.gcount()));
  return text;
}

RunReport readReport(const std::string& said, const std::string& marker) {
  const size_t at = said.rfind("\n" + marker);
  if (at == std::string::npos) return {};
  std::string_view line = lineAt(said, at + 1 + marker.size());
  const std::string_view pages = takeWord(line);
  RunReport report;
  if (std::from_chars(pages.data(), pages.data() + pages.size(), report.pages).ec != std::errc()) return {};
  report.ending = endingOf(takeWord(line));
  const std::string_view rest = takeWord(line);
  report.hasRest = rest != "0";
  report.hasFurtherPage = rest == "2";
  report.isReported = takeWord(line) == "reported";
  // Ghostscript has no name for a command that is not a PostScript object, such as text that it cannot read.
  report.error = printable(std::string(line.substr(0, line.find(" in ----nostringval----"))));
  return report;
}

std::string errorLine(const std::string& said) {
  size_t begin = said.find("Error: ");
  if (begin == std::string::npos) {
    const size_t last = said.find_last_not_of("\r\n ");
    if (last == std::string::npos) return "";
    const size_t line = said.find_last_of('\n', last);
    begin = line == std::string::npos ? 0 : line + 1;
  }
  return printable(std::string(lineAt(said, begin)));
}

}  // namespace mg::converter
