#pragma once
// Search and trimming of text. Pure; any thread.
//
// Everything counts UTF-16 code units. Returned views are parts of the given text, and live as long as it does.
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Unicode.h"

namespace NSString::Kelto {

using platform::Unicode::CompareOptions;

inline constexpr std::uint64_t notFound = 0x7fffffffffffffff;

struct Range {
  std::uint64_t location = notFound;
  std::uint64_t length = 0;
  bool operator==(const Range&) const = default;
};

// The platform's ordinary search, of one text in another. Nothing contains the empty text.
bool containsString(std::u16string_view text, std::u16string_view searched);
bool containsString_ignoringCase(std::u16string_view text, std::u16string_view searched, bool ignoringCase);

// The forgiving match of search boxes: white space in both texts is passed over, and so is punctuation unless the search
// string has some; accents in the text are passed over unless the search string has some. Returns the range from the first
// matched unit to the last, including the units passed over in between, or {notFound, 0}.
//
// `options` are those of platform/Unicode.h; only case, diacritics and
// width have an effect, the scan is always forward and never anchored. `range` limits where the scan goes. Where folding
// changes the length of the text, range and result count in the folded text. A partial match that fails is resumed at the
// unit that failed, not after its own start: "aab" is not found in "aaab".
Range rangeOfSearchableString(std::u16string_view text, std::u16string_view searchString);
Range rangeOfSearchableString_options(std::u16string_view text, std::u16string_view searchString, CompareOptions options);
Range rangeOfSearchableString_options_range(std::u16string_view text, std::u16string_view searchString,
                                            CompareOptions options, Range range);

// One search string prepared for many texts. A match allocates nothing once this thread has seen a text as long.
class SearchableString {
 public:
  SearchableString(std::u16string_view searchString, CompareOptions options);

  // As rangeOfSearchableString_options_range.
  [[nodiscard]] Range rangeIn(std::u16string_view text) const;
  [[nodiscard]] Range rangeIn(std::u16string_view text, Range range) const;

 private:
  [[nodiscard]] bool isIgnorable(char16_t unit) const;
  [[nodiscard]] Range scan(std::u16string_view text, std::size_t first, std::size_t last) const;

  std::size_t _searchStringLength;
  bool _ignoresPunctuation;
  CompareOptions _textFolding;
  std::u16string _needle;
};

// Without leading white space. Throws std::out_of_range if the text has no other character: callers pass text that has one.
std::u16string_view stringByTrimmingLeadingWhitespace(std::u16string_view text);
// Without trailing white space; the empty text stays empty. Throws std::out_of_range if it has no other character.
std::u16string_view stringByTrimmingTrailingWhitespace(std::u16string_view text);
// Both; safe for any text.
std::u16string_view stringByTrimmingLeadingAndTrailingWhitespace(std::u16string_view text);

}  // namespace NSString::Kelto
