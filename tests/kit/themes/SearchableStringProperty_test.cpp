// The search against a slow writing of the same rules, step for step, on many small texts.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdint>

#include "kit/NSString+Kelto.h"

using namespace NSString::Kelto;
namespace Unicode = platform::Unicode;

namespace {

bool isUnchanged(const std::u16string& text, CompareOptions options) { return Unicode::folded(text, options) == text; }

Range slowSearch(const std::u16string& receiver, const std::u16string& searched, CompareOptions options, Range range) {
  const Range notFound{0x7fffffffffffffff, 0};
  const std::uint64_t end = range.location + range.length;
  if (receiver.empty()) return notFound;
  if (range.location == 0x7fffffffffffffff) return notFound;
  if (searched.empty()) return notFound;
  if (receiver.size() < range.location) return notFound;
  if (searched.size() > end) return notFound;

  const bool hasPunctuation = std::any_of(searched.begin(), searched.end(), Unicode::isPunctuation);
  const auto isIgnorable = [&](char16_t c) {
    return Unicode::isWhitespace(c) || (!hasPunctuation && Unicode::isPunctuation(c));
  };
  std::u16string needle;
  for (const char16_t c : searched)
    if (!isIgnorable(c)) needle.push_back(c);
  if (options != 0) needle = Unicode::folded(needle, options);
  std::u16string haystack = receiver;
  if (isUnchanged(needle, options | 128))
    haystack = Unicode::folded(receiver, options | 128);
  else if (options != 0)
    haystack = Unicode::folded(receiver, options);

  if (std::uint64_t{needle.size()} - 1 >= end) return notFound;
  const auto last = static_cast<std::int64_t>(std::min<std::uint64_t>(haystack.size(), end)) - 1;
  if (last < static_cast<std::int64_t>(range.location)) return notFound;

  auto i = static_cast<std::int64_t>(range.location);
  std::int64_t j = -1;
  std::uint64_t count = 0;
  std::int64_t start = 0;
  const auto needleLength = static_cast<std::int64_t>(needle.size());
  while (i <= last) {
    const char16_t c = haystack.at(static_cast<std::size_t>(i));
    if (!isIgnorable(c)) {
      j += 1;
      if (c == needle.at(static_cast<std::size_t>(j))) {
        if (j == 0) {
          count = 0;
          start = i;
        }
        if (j == needleLength - 1) return {static_cast<std::uint64_t>(start), count + 1};
      } else {
        if (j != 0) i -= 1;
        j = -1;
        if (last < i + needleLength) return notFound;
      }
    }
    i += 1;
    count += 1;
  }
  return notFound;
}

// Few different characters, so that partial matches, repeated prefixes and everything that is folded are frequent.
rc::Gen<std::u16string> text() {
  return rc::gen::container<std::u16string>(rc::gen::elementOf(std::u16string(
      u"aaaabbbAB  ..&\t\u00E9e\u0301E\u00C9\u00DF\u3000\u2014\uFF21\uFF42\uFF76\uFF9E\u30AC\uAC00\u1100\u1161\u11A8")));
}

rc::Gen<CompareOptions> options() {
  return rc::gen::element<CompareOptions>(0, 1, 128, 129, 256, 257, 384, 385, 2, 4, 8, 64, 512, 1023);
}

}  // namespace

RC_GTEST_PROP(SearchableStringProperty, AgreesWithTheSlowWritingOnWholeTexts, ()) {
  const auto receiver = *text();
  const auto searched = *rc::gen::resize(4, text());
  const auto bits = *options();
  RC_CLASSIFY(rangeOfSearchableString_options(receiver, searched, bits) != Range{}, "found");
  RC_ASSERT(rangeOfSearchableString_options(receiver, searched, bits) ==
            slowSearch(receiver, searched, bits, {0, receiver.size()}));
}

RC_GTEST_PROP(SearchableStringProperty, AgreesWithTheSlowWritingOnRanges, ()) {
  const auto receiver = *text();
  const auto searched = *rc::gen::resize(4, text());
  const auto bits = *options();
  const Range range{*rc::gen::inRange<std::uint64_t>(0, 12), *rc::gen::inRange<std::uint64_t>(0, 40)};
  RC_ASSERT(rangeOfSearchableString_options_range(receiver, searched, bits, range) ==
            slowSearch(receiver, searched, bits, range));
}

RC_GTEST_PROP(SearchableStringProperty, AgreesWithTheSlowWritingOnPartsOfTheText, ()) {
  const auto receiver = *text();
  RC_PRE(!receiver.empty());
  const auto from = *rc::gen::inRange<std::size_t>(0, receiver.size());
  const auto length = *rc::gen::inRange<std::size_t>(1, 6);
  const auto searched = receiver.substr(from, length);
  const auto bits = *options();
  RC_CLASSIFY(rangeOfSearchableString_options(receiver, searched, bits) != Range{}, "found");
  RC_ASSERT(rangeOfSearchableString_options(receiver, searched, bits) ==
            slowSearch(receiver, searched, bits, {0, receiver.size()}));
}

RC_GTEST_PROP(SearchableStringProperty, AnyUnitsAtAllAreSearchedWithoutHarm, ()) {
  const auto receiver = *rc::gen::container<std::u16string>(rc::gen::arbitrary<char16_t>());
  const auto searched = *rc::gen::container<std::u16string>(rc::gen::arbitrary<char16_t>());
  const auto bits = *options();
  const Range range{*rc::gen::arbitrary<std::uint64_t>(), *rc::gen::arbitrary<std::uint64_t>()};
  RC_ASSERT(rangeOfSearchableString_options_range(receiver, searched, bits, range) ==
            slowSearch(receiver, searched, bits, range));
}
