#include "kit/NSString+Kelto.h"

#include <algorithm>
#include <stdexcept>

namespace NSString::Kelto {
namespace {

namespace Unicode = platform::Unicode;

// One bit for each ASCII character that is white space or punctuation, so that most units need no look into the tables.
struct ASCIISet {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  [[nodiscard]] constexpr bool contains(char16_t unit) const {
    return ((unit < 64 ? low >> unit : high >> (unit - 64)) & 1) != 0;
  }
};

constexpr ASCIISet asciiSet(std::string_view characters) {
  ASCIISet set;
  for (const char c : characters) (c < 64 ? set.low : set.high) |= std::uint64_t{1} << (c % 64);
  return set;
}

constexpr ASCIISet whitespace = asciiSet(" \t");
constexpr ASCIISet whitespaceAndPunctuation = asciiSet(" \t!\"#%&'()*,-./:;?@[\\]_{}");

// The buffer for folded texts. Each thread keeps its own, unless one text was very long.
std::u16string& scratch() {
  constexpr std::size_t keptCapacity = 1U << 16;
  thread_local std::u16string buffer;
  if (buffer.capacity() > keptCapacity) std::u16string().swap(buffer);
  return buffer;
}

bool isRefused(std::u16string_view text, std::size_t searchStringLength, Range range) {
  return text.empty() || range.location == notFound || searchStringLength == 0 || text.size() < range.location ||
         searchStringLength > range.location + range.length;
}

}  // namespace

bool containsString(std::u16string_view text, std::u16string_view searched) {
  return containsString_ignoringCase(text, searched, false);
}

bool containsString_ignoringCase(std::u16string_view text, std::u16string_view searched, bool ignoringCase) {
  return Unicode::containsString(text, searched, ignoringCase);
}

Range rangeOfSearchableString(std::u16string_view text, std::u16string_view searchString) {
  return rangeOfSearchableString_options(text, searchString, 0);
}

Range rangeOfSearchableString_options(std::u16string_view text, std::u16string_view searchString, CompareOptions options) {
  return rangeOfSearchableString_options_range(text, searchString, options, {0, text.size()});
}

Range rangeOfSearchableString_options_range(std::u16string_view text, std::u16string_view searchString,
                                            CompareOptions options, Range range) {
  if (isRefused(text, searchString.size(), range)) return {};
  return SearchableString(searchString, options).rangeIn(text, range);
}

SearchableString::SearchableString(std::u16string_view searchString, CompareOptions options)
    : _searchStringLength(searchString.size()),
      _ignoresPunctuation(std::ranges::none_of(searchString, Unicode::isPunctuation)),
      _textFolding(options | Unicode::DiacriticInsensitiveSearch) {
  for (const char16_t unit : searchString)
    if (!isIgnorable(unit)) _needle += unit;
  _needle = Unicode::folded(_needle, options);
  // A user who types an accent means it: the text then keeps its accents.
  if (Unicode::folded(_needle, _textFolding) != _needle) _textFolding = options;
}

Range SearchableString::rangeIn(std::u16string_view text) const { return rangeIn(text, {0, text.size()}); }

Range SearchableString::rangeIn(std::u16string_view text, Range range) const {
  if (isRefused(text, _searchStringLength, range)) return {};
  const std::uint64_t end = range.location + range.length;
  if (_needle.empty() || _needle.size() - 1 >= end) return {};
  if (_textFolding != 0) {
    std::u16string& folded = scratch();
    Unicode::fold(text, _textFolding, folded);
    text = folded;
  }
  const std::uint64_t scanEnd = std::min<std::uint64_t>(text.size(), end);
  if (scanEnd <= range.location) return {};
  return scan(text, range.location, scanEnd - 1);
}

bool SearchableString::isIgnorable(char16_t unit) const {
  if (unit < 0x80) return (_ignoresPunctuation ? whitespaceAndPunctuation : whitespace).contains(unit);
  return Unicode::isWhitespace(unit) || (_ignoresPunctuation && Unicode::isPunctuation(unit));
}

Range SearchableString::scan(std::u16string_view text, std::size_t first, std::size_t last) const {
  std::size_t matched = 0;
  std::size_t start = 0;
  for (std::size_t i = first; i <= last; ++i) {
    if (matched == 0) {
      // Skips to the next unit that can begin a match, whether or not the units before it are ignorable.
      i = text.find(_needle[0], i);
      if (i > last || last - i < _needle.size() - 1) return {};
      start = i;
    }
    if (isIgnorable(text[i])) continue;
    if (text[i] != _needle[matched]) {
      // The unit that failed is tried again as the first of the needle; nothing before it is.
      matched = 0;
      --i;
      continue;
    }
    if (++matched == _needle.size()) return {start, i - start + 1};
  }
  return {};
}

std::u16string_view stringByTrimmingLeadingWhitespace(std::u16string_view text) {
  const auto start = std::ranges::find_if_not(text, Unicode::isWhitespace);
  if (start == text.end()) throw std::out_of_range("stringByTrimmingLeadingWhitespace: no other character");
  return {start, text.end()};
}

std::u16string_view stringByTrimmingTrailingWhitespace(std::u16string_view text) {
  if (text.empty()) return text;
  std::size_t end = text.size();
  while (end > 0 && Unicode::isWhitespace(text[end - 1])) --end;
  if (end == 0) throw std::out_of_range("stringByTrimmingTrailingWhitespace: no other character");
  return text.substr(0, end);
}

std::u16string_view stringByTrimmingLeadingAndTrailingWhitespace(std::u16string_view text) {
  while (!text.empty() && Unicode::isWhitespace(text.front())) text.remove_prefix(1);
  while (!text.empty() && Unicode::isWhitespace(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace NSString::Kelto
