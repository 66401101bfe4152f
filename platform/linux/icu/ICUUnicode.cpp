#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

#include <algorithm>

#include "platform/Unicode.h"
#include "platform/linux/icu/FoldingTable.h"

namespace platform::Unicode {
namespace {

constexpr bool isASCII(char16_t unit) { return unit < 0x80; }

bool isASCII(std::u16string_view text) {
  char16_t all = 0;
  for (const char16_t unit : text) all |= unit;
  return isASCII(all);
}

constexpr char16_t lowered(char16_t unit) {
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
}

bool isOfCategories(UChar32 character, std::uint32_t mask) { return (U_GET_GC_MASK(character) & mask) != 0; }

// Composed, so that equal texts have equal units.
icu::UnicodeString comparable(std::u16string_view text, bool ignoringCase) {
  UErrorCode error = U_ZERO_ERROR;
  icu::UnicodeString result = Linux::unicodeString(text);
  if (ignoringCase) {
    result = icu::Normalizer2::getNFDInstance(error)->normalize(result, error);
    result.foldCase(U_FOLD_CASE_DEFAULT);
  }
  return icu::Normalizer2::getNFCInstance(error)->normalize(result, error);
}

bool isMarkAt(const icu::UnicodeString& text, int32_t index) {
  return index < text.length() && isOfCategories(text.char32At(index), U_GC_M_MASK);
}

bool containsASCII(std::u16string_view text, std::u16string_view searched, bool ignoringCase) {
  if (!ignoringCase) return text.find(searched) != std::u16string_view::npos;
  const auto isSame = [](char16_t a, char16_t b) { return lowered(a) == lowered(b); };
  return std::search(text.begin(), text.end(), searched.begin(), searched.end(), isSame) != text.end();
}

}  // namespace

bool isWhitespace(char16_t unit) {
  if (isASCII(unit)) return unit == u' ' || unit == u'\t';
  return isOfCategories(unit, U_GC_ZS_MASK);
}

bool isWhitespaceOrNewline(char16_t unit) {
  return unit == u'\t' || (unit >= u'\n' && unit <= u'\r') || unit == 0x85 || isOfCategories(unit, U_GC_Z_MASK);
}

bool isPunctuation(char16_t unit) { return isOfCategories(unit, U_GC_P_MASK); }

bool isAlphanumeric(char16_t unit) { return isOfCategories(unit, U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK); }

void fold(std::u16string_view text, CompareOptions options, std::u16string& folded) {
  if ((options & Linux::foldingOptions) == 0)
    folded = text;
  else if (!Linux::foldByTable(text, options, folded))
    folded = Linux::foldedByLibrary(text, options);
}

std::u16string folded(std::u16string_view text, CompareOptions options) {
  std::u16string result;
  fold(text, options, result);
  return result;
}

bool containsString(std::u16string_view text, std::u16string_view searched, bool ignoringCase) {
  if (searched.empty()) return false;
  if (isASCII(text) && isASCII(searched)) return containsASCII(text, searched, ignoringCase);
  const icu::UnicodeString all = comparable(text, ignoringCase);
  const icu::UnicodeString part = comparable(searched, ignoringCase);
  for (int32_t i = all.indexOf(part); i >= 0; i = all.indexOf(part, i + 1))
    if ((i == 0 || !isMarkAt(all, i)) && !isMarkAt(all, i + part.length())) return true;
  return false;
}

std::u16string utf16(std::string_view text) {
  const auto result = icu::UnicodeString::fromUTF8({text.data(), static_cast<int32_t>(text.size())});
  return {result.getBuffer(), static_cast<std::size_t>(result.length())};
}

std::string utf8(std::u16string_view text) {
  std::string result;
  Linux::unicodeString(text).toUTF8String(result);
  return result;
}

}  // namespace platform::Unicode
