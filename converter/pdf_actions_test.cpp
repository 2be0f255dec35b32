#include "converter/pdf_actions.h"

#include "converter/completeness.h"
#include "tests/support/converter/convert_fixture.h"
#include "util/win_handle.h"

#include <cstring>
#include <iterator>

namespace mg::converter {
namespace {

// Real PDFs, written by Ghostscript from documents with marks of every kind.
class PdfActions : public ConvertTest {
 protected:
  std::string bytes(const std::wstring& path) const {
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // The PDF that reaches the client when the document carries these marks on its page.
  std::string pdfWith(const std::string& marks) {
    const JobPaths paths = write(L"job", "%!PS-Adobe-3.0\n" + marks + "\n10 10 50 50 rectfill showpage\n");
    EXPECT_EQ(convert(paths, m_limits), 1) << marks;
    EXPECT_EQ(countPdfPages(paths.output).count, 1);
    return bytes(paths.output);
  }
  // Writes a PDF of the test's own, with this object in it, and gives where the object stands.
  size_t writeOwn(const std::string& object) {
    std::string file = "%PDF-1.7\n";
    const size_t catalog = file.size();
    file += "1 0 obj\n<</Type/Catalog/Pages 2 0 R>>\nendobj\n";
    const size_t pages = file.size();
    file += "2 0 obj\n<</Type/Pages/Count 0/Kids[]>>\nendobj\n";
    const size_t third = file.size();
    file += "3 0 obj\n" + object + "\nendobj\n";
    const size_t table = file.size();
    file += "xref\n0 4\n0000000000 65535 f \n";
    for (const size_t at : {catalog, pages, third}) {
      const std::string digits = std::to_string(at);
      file += std::string(10 - digits.size(), '0') + digits + " 00000 n \n";
    }
    file += "trailer\n<</Size 4/Root 1 0 R>>\nstartxref\n" + std::to_string(table) + "\n%%EOF\n";
    std::ofstream(std::filesystem::path(m_own), std::ios::binary) << file;
    return third + 8;
  }
  // What becomes of this object when its PDF is made harmless.
  std::string disarmed(const std::string& object) {
    const size_t at = writeOwn(object);
    const size_t size = bytes(m_own).size();
    m_count = disarmPdf(m_own);
    const std::string after = bytes(m_own);
    EXPECT_EQ(after.size(), size);
    return after.substr(at, object.size());
  }
  // Why that PDF cannot be made harmless.
  ConversionError refusal() {
    try {
      disarmPdf(m_own);
    } catch (const ConversionError& error) {
      return error;
    }
    return ConversionError(ExitCode::kDone, L"it can");
  }

  const std::wstring m_own = m_folder + L"\\own.pdf";
  int m_count = 0;
};

constexpr char kLink[] = "[ /Rect [10 10 50 50] /Subtype /Link /Action ";

bool has(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

TEST_F(PdfActions, AProgramThatALinkWouldStartDoesNotReachTheClient) {
  const std::string pdf = pdfWith(std::string(kLink) + "/Launch /File (/bin/sh) /ANN pdfmark");
  EXPECT_TRUE(has(pdf, "/Annot"));
  EXPECT_FALSE(has(pdf, "/Launch"));
}

TEST_F(PdfActions, ScriptsDoNotReachTheClient) {
  const std::string pdf =
      pdfWith(std::string(kLink) +
              "<</Subtype /JavaScript /JS (app.alert(1))>> /ANN pdfmark "
              "[ {Catalog} <</Names <</JavaScript <</Names [(a) <</S/JavaScript/JS(x)>>]>>>>>> /PUT pdfmark");
  EXPECT_FALSE(has(pdf, "/JavaScript"));
  EXPECT_FALSE(has(pdf, "/JS"));
}

TEST_F(PdfActions, NothingHappensByItselfWhenTheFileIsOpened) {
  const std::string pdf = pdfWith(
      "[ {Catalog} <</OpenAction <</S /Launch /F (x)>> /AA <</WC <</S /JavaScript>>>>>> /PUT pdfmark "
      "[ {ThisPage} <</AA <</O <</S /Launch>>>>>> /PUT pdfmark [/View [/Fit] /DOCVIEW pdfmark");
  for (const char* key : {"/OpenAction", "/AA", "/Launch", "/JavaScript"})
    EXPECT_FALSE(has(pdf, key)) << key;
}

TEST_F(PdfActions, NamesInAnotherSpellingAreFound) {
  EXPECT_EQ(disarmed("<</A<</S/La#75nch>>/Open#41#63tion 1>>"), "<</A<</S/xxxxxxxx>>/xxxxxxxxxxxxxx 1>>");
  EXPECT_EQ(disarmed("<</#4aS 1/#4AS 1/J#5a 1>>"), "<</xxxx 1/xxxx 1/J#5a 1>>");
}

TEST_F(PdfActions, AnEmbeddedFileDoesNotReachTheClient) {
  const std::string pdf = pdfWith(
      "[/_objdef {f} /type /stream /OBJ pdfmark [{f} (the secret content) /PUT pdfmark "
      "[{f} <</Type /EmbeddedFile>> /PUT pdfmark [{f} /CLOSE pdfmark "
      "[/Name (f) /FS <</Type /Filespec /F (evil.exe) /EF <</F {f}>> >> /EMBED pdfmark");
  EXPECT_FALSE(has(pdf, "/EmbeddedFile"));
  EXPECT_FALSE(has(pdf, "/EF"));
  EXPECT_FALSE(has(pdf, "the secret content"));
}

TEST_F(PdfActions, TheContentOfAnEmbeddedFileIsGoneAlsoWhenNothingSaysThatItIsOne) {
  EXPECT_EQ(disarmed("<</EF<</F 3 0 R>>/Length 6>>stream\nsecret\nendstream"),
            "<</xx<</F 3 0 R>>/Length 6>>stream\n" + std::string(6, '\0') + "\nendstream");
}

TEST_F(PdfActions, LinksToFilesAndOtherSchemesDoNotWork) {
  for (const char* address : {"(file:///etc/passwd)", "(javascript:alert(1))", "(\\\\\\\\server\\\\share)", "(FILE:x)",
                              "(smb://x)", "(x.exe)", "()"}) {
    const std::string pdf = pdfWith(std::string(kLink) + "<</Subtype /URI /URI " + address + ">> /ANN pdfmark");
    EXPECT_FALSE(has(pdf, "/URI(") || has(pdf, "/URI (") || has(pdf, "/URI<")) << address;
  }
  EXPECT_EQ(disarmed("<</S/URI/URI<66696C653A2F>>>"), "<</S/URI/xxx<66696C653A2F>>>");
  EXPECT_EQ(disarmed("<</S/URI/URI(\\146ile:)>>"), "<</S/URI/xxx(\\146ile:)>>");
  EXPECT_EQ(disarmed("<</S/URI/URI 9 0 R>>"), "<</S/URI/xxx 9 0 R>>");
  EXPECT_EQ(disarmed("<</S/URI/URI http:x>>"), "<</S/URI/xxx http:x>>") << "a word is no address";
  EXPECT_EQ(disarmed("<</S/URI/URI/http:>>"), "<</S/URI/xxx/http:>>") << "nor is a name";
}

TEST_F(PdfActions, AnHonestLinkInAnotherSpellingStays) {
  for (const char* link :
       {"<</S/URI/URI(\\150ttp:x)>>", "<</S/URI/URI(\\mailto:a)>>", "<</S/URI/URI<687474703a78>>>"}) {
    EXPECT_EQ(disarmed(link), link);
    EXPECT_EQ(m_count, 0) << link;
  }
}

TEST_F(PdfActions, ObjectsAreExaminedDownToALevelOf200AndDeeperOnesAreRefused) {
  const std::pair<std::string, std::string> forms[] = {{"[", "]"}, {"<</K ", ">>"}, {"<<", ">>"}};
  for (const auto& form : forms) {
    std::string object = "1";
    for (int level = 1; level <= 200; ++level)
      object = form.first + object + form.second;
    EXPECT_EQ(disarmed(object), object);
    writeOwn(form.first + object + form.second);
    EXPECT_NE(refusal().text().find(L": an object is too deep."), std::wstring::npos) << form.first;
    EXPECT_EQ(refusal().code(), ExitCode::kIncomplete) << form.first;
  }
}

TEST_F(PdfActions, APdfThatCannotBeMadeHarmlessIsRefused) {
  writeOwn("<</S/Launch>>");
  const FileHandle other(CreateFileW(m_own.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_EQ(refusal().text(), L"\"" + m_own + L"\" cannot be changed. Print the document again.");
  EXPECT_EQ(refusal().code(), ExitCode::kFileSystem);
}

TEST_F(PdfActions, HonestLinksAndBookmarksStay) {
  const std::string pdf =
      pdfWith(std::string(kLink) + "<</Subtype /URI /URI (https://example.org/a\\(b\\))>> /ANN pdfmark " + kLink +
              "<</Subtype /URI /URI (MAILTO:a@example.org)>> /ANN pdfmark "
              "[ /Rect [1 1 9 9] /Subtype /Link /Page 1 /View [/Fit] /ANN pdfmark "
              "[/Title (Chapter) /Page 1 /OUT pdfmark");
  for (const char* part :
       {"/URI(https://example.org/a", "/URI(MAILTO:a@example.org)", "/Title(Chapter)", "/Dest", "/Outlines"})
    EXPECT_TRUE(has(pdf, part)) << part;
}

TEST_F(PdfActions, OtherKindsOfActionsAreTakenOut) {
  for (const char* kind : {"GoToR", "GoToE", "ImportData", "SubmitForm", "Rendition", "Movie", "Sound", "Thread"}) {
    EXPECT_EQ(disarmed("<</S /" + std::string(kind) + " /F(x)>>"),
              "<</S /" + std::string(std::strlen(kind), 'x') + " /F(x)>>");
    EXPECT_EQ(m_count, 1);
  }
  EXPECT_EQ(disarmed("<</Type/Annot/Subtype /FileAttachment>>"), "<</Type/Annot/Subtype /xxxxxxxxxxxxxx>>");
  EXPECT_EQ(disarmed("/Launch"), "/xxxxxx");
}

TEST_F(PdfActions, TheSameWordsElsewhereStay) {
  for (const char* text :
       {"<</Title(/Launch /JS /AA)/Contents <</S/Link/K/Launch>>>>", "[/Launch /JS /AA]",
        "<</Differences[0/AA/JS/EF]/Separation/Launch>>", "<</CharProcs<</AA 1 0 R/JS 2 0 R>>>>",
        "<</S/GoTo/D[1 0 R/Fit]>>", "<</S/Named/N/NextPage>>", "<</Length 9>>stream\n<</AA 1>>\nendstream"}) {
    EXPECT_EQ(disarmed(text), text);
    EXPECT_EQ(m_count, 0);
  }
}

TEST_F(PdfActions, WhatADocumentWritesIntoTheOutputItselfIsLookedAtToo) {
  // Ghostscript lets a document open its output; whatever is in the file at the end is what counts.
  const JobPaths paths = write(L"job",
                               "%!PS-Adobe-3.0\n(out.pdf) (a) file /f exch def 10 10 50 50 rectfill showpage\n"
                               "f (\\n9 0 obj <</OpenAction 1>> endobj\\nxref\\n0 1\\n) writestring f flushfile\n");
  try {
    convert(paths, m_limits);
    EXPECT_FALSE(has(bytes(paths.output), "/OpenAction"));
  } catch (const ConversionError&) {
    EXPECT_FALSE(std::filesystem::exists(paths.output));
  }
}

TEST_F(PdfActions, APdfForFastWebViewIsWholeAndMadeHarmlessToo) {
  const JobPaths paths = write(L"job", "%!PS-Adobe-3.0\n<</FastWebView true>> setpagedevice\n" + std::string(kLink) +
                                           "/Launch /File (/bin/sh) /ANN pdfmark 10 10 50 50 rectfill showpage\n"
                                           "20 20 50 50 rectfill showpage\n");
  EXPECT_EQ(convert(paths, m_limits), 2);
  EXPECT_TRUE(has(bytes(paths.output), "/Linearized"));
  EXPECT_FALSE(has(bytes(paths.output), "/Launch"));
}

}  // namespace
}  // namespace mg::converter
