#include "platform/linux/icu/FoldingTable.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace platform::Linux {
namespace {

using icu::Normalizer2;
using icu::UnicodeString;
using Getter = const Normalizer2* (*)(UErrorCode&);

// The normalizers are compiled into the library: without them it is broken.
UnicodeString normalized(const UnicodeString& text, Getter getter) {
  UErrorCode error = U_ZERO_ERROR;
  const Normalizer2* normalizer = getter(error);
  if (U_FAILURE(error)) std::abort();
  UnicodeString result = normalizer->normalize(text, error);
  if (U_FAILURE(error)) std::abort();
  return result;
}

// The ordinary form of a wide or narrow character; empty for any other.
UnicodeString ordinaryForm(UChar32 character) {
  const auto type = u_getIntPropertyValue(character, UCHAR_DECOMPOSITION_TYPE);
  UnicodeString form;
  UErrorCode error = U_ZERO_ERROR;
  if (type == U_DT_WIDE || type == U_DT_NARROW) Normalizer2::getNFKCInstance(error)->getRawDecomposition(character, form);
  return form;
}

// Runs of wide and narrow forms are composed, so that a narrow letter joins with its narrow sound mark.
UnicodeString withOrdinaryWidth(const UnicodeString& text) {
  UnicodeString result;
  UnicodeString run;
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    const UnicodeString form = ordinaryForm(text.char32At(i));
    run += form;
    if (!form.isEmpty()) continue;
    result += normalized(run, Normalizer2::getNFCInstance);
    result += text.char32At(i);
    run.remove();
  }
  return result + normalized(run, Normalizer2::getNFCInstance);
}

UnicodeString withoutMarks(const UnicodeString& text) {
  const UnicodeString decomposed = normalized(text, Normalizer2::getNFDInstance);
  UnicodeString result;
  for (int32_t i = 0; i < decomposed.length(); i = decomposed.moveIndex32(i, 1))
    if (u_charType(decomposed.char32At(i)) != U_NON_SPACING_MARK) result += decomposed.char32At(i);
  return normalized(result, Normalizer2::getNFCInstance);
}

// How one code unit folds: `length` units, the one in `value`, or those from there on in the page's `texts`.
struct Entry {
  char16_t value = 0;
  std::uint8_t length = 0;
};
constexpr std::uint8_t dependsOnNeighbours = 0xFF;

struct Page {
  std::array<Entry, 256> entries;
  std::u16string texts;
};

// True when a text that begins with `character` may be joined with, or reordered before, what stands in front of it.
bool joinsBackwards(UChar32 character) {
  return u_getCombiningClass(character) != 0 || u_getIntPropertyValue(character, UCHAR_NFC_QUICK_CHECK) != UNORM_YES;
}

Entry entryFor(char16_t unit, Unicode::CompareOptions options, std::u16string& texts) {
  if (U16_IS_SURROGATE(unit)) return {0, dependsOnNeighbours};
  const std::u16string folded = foldedByLibrary(std::u16string_view(&unit, 1), options);
  if (folded.empty()) return {0, 0};
  if (joinsBackwards(unicodeString(folded).char32At(0))) return {0, dependsOnNeighbours};
  if (folded.size() == 1) return {folded[0], 1};
  const auto place = static_cast<char16_t>(texts.size());
  texts += folded;
  return {place, static_cast<std::uint8_t>(folded.size())};
}

std::unique_ptr<Page> makePage(unsigned number, Unicode::CompareOptions options) {
  auto page = std::make_unique<Page>();
  for (unsigned low = 0; low < 256; ++low)
    page->entries[low] = entryFor(static_cast<char16_t>(number << 8 | low), options, page->texts);
  return page;
}

// One bit for each option that folds.
unsigned tableNumber(Unicode::CompareOptions options) {
  return ((options & Unicode::CaseInsensitiveSearch) != 0 ? 1U : 0U) |
         ((options & Unicode::DiacriticInsensitiveSearch) != 0 ? 2U : 0U) |
         ((options & Unicode::WidthInsensitiveSearch) != 0 ? 4U : 0U);
}

using Table = std::array<std::atomic<const Page*>, 256>;

// Pages are made when first needed, and kept. Two threads may make the same one; the first to finish is kept.
const Page& pageOf(Table& table, unsigned number, Unicode::CompareOptions options) {
  const Page* page = table[number].load(std::memory_order_acquire);
  if (page != nullptr) return *page;
  auto made = makePage(number, options);
  if (table[number].compare_exchange_strong(page, made.get(), std::memory_order_acq_rel)) return *made.release();
  return *page;
}

// Four units in one word, one in each 16 bits.
constexpr std::uint64_t inEach(std::uint64_t unit) { return unit << 48 | unit << 32 | unit << 16 | unit; }

// Four ASCII units in lower case: adding takes a unit from 'A' on, and one beyond 'Z', to bit 7.
constexpr std::uint64_t lowered(std::uint64_t units) {
  const std::uint64_t isUpper = ((units + inEach(0x80 - u'A')) ^ (units + inEach(0x7F - u'Z'))) & inEach(0x80);
  return units + (isUpper >> 2);
}

// Writes the ASCII beginning of `text`, folded, to the front of `folded`, in steps of four units; returns its length. Only
// case folds there.
std::size_t foldASCII(std::u16string_view text, bool foldsCase, std::u16string& folded) {
  std::size_t i = 0;
  for (; i + 4 <= text.size(); i += 4) {
    std::uint64_t units = 0;
    std::memcpy(&units, text.data() + i, sizeof units);
    if ((units & inEach(0xFF80)) != 0) return i;
    if (foldsCase) units = lowered(units);
    std::memcpy(folded.data() + i, &units, sizeof units);
  }
  return i;
}

// True when `text` begins with a whole surrogate pair whose character folds to itself, whatever stands around it: an emoji.
bool beginsWithPlainPair(std::u16string_view text, Unicode::CompareOptions options) {
  if (text.size() < 2 || !U16_IS_LEAD(text[0]) || !U16_IS_TRAIL(text[1])) return false;
  const UChar32 character = U16_GET_SUPPLEMENTARY(text[0], text[1]);
  if ((options & Unicode::CaseInsensitiveSearch) != 0 && u_foldCase(character, U_FOLD_CASE_DEFAULT) != character)
    return false;
  return u_getIntPropertyValue(character, UCHAR_DECOMPOSITION_TYPE) == U_DT_NONE &&
         u_charType(character) != U_NON_SPACING_MARK && !joinsBackwards(character);
}

}  // namespace

UnicodeString unicodeString(std::u16string_view text) {
  constexpr std::size_t longest = std::size_t{1} << 30;
  return {text.data(), static_cast<int32_t>(std::min(text.size(), longest))};
}

std::u16string foldedByLibrary(std::u16string_view text, Unicode::CompareOptions options) {
  UnicodeString folded = unicodeString(text);
  if ((options & Unicode::WidthInsensitiveSearch) != 0) folded = withOrdinaryWidth(folded);
  if ((options & Unicode::CaseInsensitiveSearch) != 0) folded.foldCase(U_FOLD_CASE_DEFAULT);
  if ((options & Unicode::DiacriticInsensitiveSearch) != 0) folded = withoutMarks(folded);
  return {folded.getBuffer(), static_cast<std::size_t>(folded.length())};
}

bool foldByTable(std::u16string_view text, Unicode::CompareOptions options, std::u16string& folded) {
  static std::array<Table, 8> tables{};
  Table& table = tables[tableNumber(options)];
  folded.resize(text.size());
  std::size_t read = foldASCII(text, (options & Unicode::CaseInsensitiveSearch) != 0, folded);
  std::size_t written = read;
  // As long as nothing becomes longer, there is room for it.
  for (; read < text.size(); ++read) {
    const Entry& entry = pageOf(table, text[read] >> 8, options).entries[text[read] & 0xFF];
    if (entry.length > 1) break;
    folded[written] = entry.value;
    written += entry.length;
  }
  folded.resize(written);
  for (; read < text.size(); ++read) {
    const Page& page = pageOf(table, text[read] >> 8, options);
    const Entry& entry = page.entries[text[read] & 0xFF];
    if (entry.length == 1) {
      folded += entry.value;
    } else if (entry.length != dependsOnNeighbours) {
      folded.append(page.texts, entry.value, entry.length);
    } else if (beginsWithPlainPair(text.substr(read), options)) {
      folded.append(text, read++, 2);
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace platform::Linux
