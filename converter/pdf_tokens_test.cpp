#include "converter/pdf_tokens.h"

#include <gtest/gtest.h>
#include <string>

namespace mg::converter {
namespace {

PdfToken first(std::string_view text) {
  return PdfTokens(text).next();
}

// The text of the one string in it.
std::string decoded(const std::string& text) {
  const PdfToken token = first(text);
  EXPECT_EQ(token.kind, PdfTokenKind::kString) << text;
  EXPECT_EQ(token.size, text.size()) << text;
  return token.text;
}

TEST(PdfTokens, EachTokenHasItsKindItsPlaceAndItsText) {
  const std::string text = "12 0 obj <</Na#6de[-1.5(s)<41>]>>% (comment\rendobj";
  PdfTokens tokens(text);
  const struct {
    PdfTokenKind kind;
    const char* written;
    const char* text;
  } expected[] = {
      {PdfTokenKind::kNumber, "12", "12"},      {PdfTokenKind::kNumber, "0", "0"},
      {PdfTokenKind::kWord, "obj", "obj"},      {PdfTokenKind::kDictBegin, "<<", ""},
      {PdfTokenKind::kName, "/Na#6de", "Name"}, {PdfTokenKind::kArrayBegin, "[", ""},
      {PdfTokenKind::kNumber, "-1.5", "-1.5"},  {PdfTokenKind::kString, "(s)", "s"},
      {PdfTokenKind::kString, "<41>", "A"},     {PdfTokenKind::kArrayEnd, "]", ""},
      {PdfTokenKind::kDictEnd, ">>", ""},       {PdfTokenKind::kWord, "endobj", "endobj"},
  };
  for (const auto& each : expected) {
    const PdfToken token = tokens.next();
    EXPECT_EQ(token.kind, each.kind) << each.written;
    EXPECT_EQ(text.substr(token.at, token.size), each.written);
    EXPECT_EQ(token.text, each.text);
  }
  EXPECT_EQ(tokens.next().kind, PdfTokenKind::kEnd);
  EXPECT_EQ(tokens.next().kind, PdfTokenKind::kEnd) << "and it stays at the end";
}

TEST(PdfTokens, NamesMayBeWrittenInHexadecimalDigits) {
  EXPECT_EQ(first("/#4a#53 ").text, "JS");
  EXPECT_EQ(first("/#4A#ff ").text, "J\xff");
  EXPECT_EQ(first("/#4g#5 ").text, "#4g#5") << "these are none";
}

TEST(PdfTokens, StringsAreDecoded) {
  EXPECT_EQ(decoded("(a(b)c)"), "a(b)c");
  EXPECT_EQ(decoded("(\\(\\)\\\\\\x)"), "()\\x");
  EXPECT_EQ(decoded("(\\n\\r\\t\\b\\f)"), "\n\r\t\b\f");
  EXPECT_EQ(decoded("(\\146ile:\\53\\0537\\377)"), "file:++7\xff");
  EXPECT_EQ(decoded("(a\\\r\nb\\\nc\\\rd)"), "abcd") << "a line is continued";
  EXPECT_EQ(decoded("<66 69\n6C6c>"), "fill");
  EXPECT_EQ(decoded("<4030>"), "@0");
  EXPECT_EQ(decoded("<413>"), "A0") << "the last digit may be missing";
  EXPECT_EQ(decoded("<>"), "");
}

TEST(PdfTokens, WhatTheEndOfTheTextMayHaveCutIsNoToken) {
  for (const char* cut :
       {"", " ", "% comment", "12", "stream", "endob", "/Name", "/", "(text", "(a\\", "(a\\)", "<41", "<"})
    EXPECT_EQ(first(cut).kind, PdfTokenKind::kEnd) << cut;
  EXPECT_EQ(first("12 ").kind, PdfTokenKind::kNumber);
  EXPECT_EQ(first("stream\n").kind, PdfTokenKind::kWord);
  EXPECT_EQ(first("endobj").kind, PdfTokenKind::kWord) << "with which an object ends";
}

}  // namespace
}  // namespace mg::converter
