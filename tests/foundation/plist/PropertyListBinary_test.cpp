#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "foundation/plist/PropertyList.h"

using namespace std::chrono_literals;
using namespace std::string_literals;
using foundation::Date;
using foundation::PropertyList::Array;
using foundation::PropertyList::Data;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::parse;
using foundation::PropertyList::Value;

namespace {

std::string bigEndian(std::uint64_t number, std::size_t size) {
  std::string bytes;
  for (std::size_t i = size; i-- > 0;) bytes += static_cast<char>(i < 8 ? number >> 8 * i & 0xFF : 0);
  return bytes;
}

// A document of the given objects, the first on top. References take two bytes, offsets four.
std::string document(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string table;
  for (const auto& object : objects) {
    table += bigEndian(bytes.size(), 4);
    bytes += object;
  }
  const auto tablePlace = bytes.size();
  return bytes + table + std::string(6, '\0') + "\x04\x02" + bigEndian(objects.size(), 8) + bigEndian(0, 8) +
         bigEndian(tablePlace, 8);
}

std::string reference(std::uint64_t number) { return bigEndian(number, 2); }

std::string real(double number, char marker = '\x23') {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return marker + bigEndian(bits, 8);
}

// A value and no reason, or a reason and no value.
bool isReadOrRefused(std::string_view bytes) {
  std::string reason;
  const bool isRead = parse(bytes, &reason).has_value();
  return isRead == reason.empty();
}

std::string reasonFor(std::string_view bytes) {
  std::string reason;
  EXPECT_FALSE(parse(bytes, &reason));
  return reason;
}

// An array of `count` references to object `number`.
std::string arrayOf(std::size_t count, std::uint64_t number) {
  std::string object = "\xAF\x12" + bigEndian(count, 4);
  for (std::size_t i = 0; i < count; ++i) object += reference(number);
  return object;
}

}  // namespace

TEST(PropertyListBinary, ReadsIntegersOfEverySize) {
  EXPECT_EQ(parse(document({"\x10\xFF"})), Value(255));
  EXPECT_EQ(parse(document({"\x11\xFF\xFF"})), Value(65535));
  EXPECT_EQ(parse(document({"\x12\xFF\xFF\xFF\xFF"})), Value(std::int64_t{4294967295}));
  EXPECT_EQ(parse(document({"\x13" + std::string(8, '\xFF')})), Value(-1));
  EXPECT_EQ(parse(document({"\x14" + std::string(15, '\0') + "\x05"})), Value(5));
  EXPECT_EQ(parse(document({"\x14" + std::string(16, '\xFF')})), Value(-1));
}

TEST(PropertyListBinary, IntegersBeyondSixtyFourBitsAreRefused) {
  EXPECT_EQ(reasonFor(document({"\x14" + std::string(8, '\0') + std::string(8, '\xFF')})),
            "an integer does not fit into 64 bits");
  EXPECT_EQ(reasonFor(document({"\x15" + std::string(32, '\0')})), "an integer has an unknown size");
}

TEST(PropertyListBinary, ReadsRealsOfBothSizes) {
  EXPECT_EQ(parse(document({"\x22\x3F\xC0\x00\x00"s})), Value(1.5));
  EXPECT_EQ(parse(document({real(-2.5e-300)})), Value(-2.5e-300));
}

TEST(PropertyListBinary, DatesAreCountedFromTheStartOf2001) {
  const Date start = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
  EXPECT_EQ(parse(document({real(0, '\x33')})), Value(start));
  EXPECT_EQ(parse(document({real(86400.5, '\x33')})), Value(start + 24h + 500ms));
  EXPECT_EQ(parse(document({real(-0.25, '\x33')})), Value(start - 250ms));
}

TEST(PropertyListBinary, DatesBeyondTheRangeBecomeItsEndsAndOnesThatAreNotNumbersAreRefused) {
  EXPECT_EQ(parse(document({real(1e300, '\x33')})), Value(Date::max()));
  EXPECT_EQ(parse(document({real(-1e11, '\x33')})), Value(Date::min()));
  EXPECT_EQ(reasonFor(document({real(std::nan(""), '\x33')})), "a date is not a number");
  EXPECT_EQ(reasonFor(document({real(std::numeric_limits<double>::infinity(), '\x33')})), "a date is not a number");
}

TEST(PropertyListBinary, ReadsTextDataAndBooleans) {
  EXPECT_EQ(parse(document({"\x53"
                            "abc"})),
            Value("abc"));
  EXPECT_EQ(parse(document({"\x63\x00\xE9\xD8\x3D\xDE\x00"s})), Value("é😀"));
  EXPECT_EQ(parse(document({"\x42\x00\xFF"s})), Value(Data{std::byte{0}, std::byte{0xFF}}));
  EXPECT_EQ(parse(document({"\x08"})), Value(false));
  EXPECT_EQ(parse(document({"\x09"})), Value(true));
}

TEST(PropertyListBinary, ReadsLongCounts) {
  EXPECT_EQ(parse(document({"\x5F\x10\x14" + std::string(20, 'x')})), Value(std::string(20, 'x')));
  EXPECT_EQ(parse(document({"\x5F\x11\x01\x2C" + std::string(300, 'x')})), Value(std::string(300, 'x')));
}

TEST(PropertyListBinary, SharedObjectsAreReadForEachReference) {
  EXPECT_EQ(parse(document(
                {"\xD2" + reference(1) + reference(2) + reference(3) + reference(3), "\x51\x61", "\x51\x62", "\x10\x07"})),
            Value(Dictionary{{"a", 7}, {"b", 7}}));
}

TEST(PropertyListBinary, OtherKindsOfObjectAreRefused) {
  EXPECT_EQ(reasonFor(document({"\x80\x01"})), "identifiers of archived objects are not property-list values");
  EXPECT_EQ(reasonFor(document({"\x00"s})), "a null or a filler is not a value");
  EXPECT_EQ(reasonFor(document({"\x0F"})), "a null or a filler is not a value");
  EXPECT_EQ(reasonFor(document({"\xC0"})), "an object is of an unknown kind");
  EXPECT_EQ(reasonFor(document({"\x70"})), "an object is of an unknown kind");
  EXPECT_EQ(reasonFor(document({"\xD1" + reference(1) + reference(1), "\x10\x01"})),
            "a key of a dictionary is not a string");
  EXPECT_EQ(reasonFor(document({"\x51\x80"})), "a string that should be ASCII is not");
  EXPECT_EQ(reasonFor(document({"\x61\xD8\x3D"})), "a string is not well-formed UTF-16");
}

TEST(PropertyListBinary, AnObjectThatHoldsItselfIsRefused) {
  EXPECT_EQ(reasonFor(document({"\xA1" + reference(0)})), "containers lie more than 64 deep");
  EXPECT_EQ(reasonFor(document({"\xA2" + reference(1) + reference(1), "\xD1" + reference(2) + reference(0), "\x51\x6b"})),
            "containers lie more than 64 deep");
}

TEST(PropertyListBinary, SharingThatExpandsWithoutEndIsRefused) {
  std::vector<std::string> objects;
  for (std::uint64_t i = 1; i <= 60; ++i) objects.push_back("\xA2" + reference(i) + reference(i));
  objects.emplace_back("\x09");
  EXPECT_EQ(reasonFor(document(objects)), "more than 1000000 values");
}

TEST(PropertyListBinary, ContainersMayLieSixtyFourDeepAndNoDeeper) {
  const auto nested = [](std::uint64_t depth) {
    std::vector<std::string> objects;
    for (std::uint64_t i = 1; i < depth; ++i) objects.push_back("\xA1" + reference(i));
    objects.emplace_back("\xA0");
    return document(objects);
  };
  EXPECT_TRUE(parse(nested(64)));
  EXPECT_EQ(reasonFor(nested(65)), "containers lie more than 64 deep");
}

TEST(PropertyListBinary, AMillionValuesAreReadAndNoMore) {
  EXPECT_TRUE(parse(document({arrayOf(999'999, 1), "\x09"})));
  EXPECT_EQ(reasonFor(document({arrayOf(1'000'000, 1), "\x09"})), "more than 1000000 values");
}

TEST(PropertyListBinary, SixteenMebibytesOfDocumentAreReadAndNoMore) {
  const auto padded = [](std::size_t size) {
    const std::size_t overhead = document({"\x09", ""}).size();
    return document({"\x09", std::string(size - overhead, 'x')});
  };
  ASSERT_EQ(padded(1 << 24).size(), std::size_t{1} << 24);
  EXPECT_TRUE(parse(padded(1 << 24)));
  EXPECT_EQ(reasonFor(padded((1 << 24) + 1)), "the document is larger than 16777216 bytes");
}

TEST(PropertyListBinary, SharedTextAndDataExpandToSixteenMebibytesAndNoMore) {
  const std::string text = "\x5F\x12" + bigEndian(1 << 20, 4) + std::string(1 << 20, 'x');
  const std::string data = "\x4F\x12" + bigEndian(1 << 20, 4) + std::string(1 << 20, 'x');
  EXPECT_TRUE(parse(document({arrayOf(16, 1), text})));
  EXPECT_TRUE(parse(document({arrayOf(16, 1), data})));
  for (const auto& oneMore : {"\x51x"s, "\x41x"s}) {
    const std::string list = "\xA2" + reference(1) + reference(3);
    EXPECT_EQ(reasonFor(document({list, arrayOf(16, 2), text, oneMore})),
              "shared references expand to more than 16777216 bytes");
  }
  EXPECT_EQ(reasonFor(document({arrayOf(5000, 1), text})), "shared references expand to more than 16777216 bytes");
}

TEST(PropertyListBinary, HugeCountsAreRefused) {
  EXPECT_EQ(reasonFor(document({"\x5F\x13" + std::string(8, '\xFF')})), "an object reaches beyond the end");
  EXPECT_EQ(reasonFor(document({"\xAF\x13\x7F" + std::string(7, '\xFF')})), "an object reaches beyond the end");
  EXPECT_EQ(reasonFor(document({"\xDF\x13\x40" + std::string(7, '\0')})), "an object reaches beyond the end");
  EXPECT_EQ(reasonFor(document({"\x6F\x13\x80" + std::string(7, '\0')})), "an object reaches beyond the end");
  EXPECT_EQ(reasonFor(document({"\x5F\x23"})), "a count is not an integer");
  EXPECT_EQ(reasonFor(document({"\x5F\x14"})), "a count is not an integer");
}

TEST(PropertyListBinary, AnObjectMayReachUpToTheTrailerAndNoFurther) {
  const std::string table = "\0\0\0\x08"s;
  EXPECT_EQ(parse(document({"\x56"
                            "ab"})),
            Value("ab" + table));
  EXPECT_EQ(reasonFor(document({"\x57"
                                "ab"})),
            "an object reaches beyond the end");
}

TEST(PropertyListBinary, ReferencesToNoObjectAreRefused) {
  EXPECT_EQ(reasonFor(document({"\xA1" + reference(1)})), "a reference names no object");
}

TEST(PropertyListBinary, ATrailerThatDoesNotFitIsRefused) {
  const std::string whole = document({"\x09"});
  const auto changed = [&](std::size_t fromEnd, char c) {
    std::string bytes = whole;
    bytes[bytes.size() - fromEnd] = c;
    return bytes;
  };
  for (const auto& bytes : {changed(26, '\0'), changed(26, '\x09'), changed(25, '\0'), changed(25, '\x09'),
                            changed(17, '\x02'), changed(24, '\xFF'), changed(9, '\x01'), changed(1, '\x07'),
                            changed(1, '\x0E'), changed(1, '\xFF'), changed(8, '\xFF')})
    EXPECT_EQ(reasonFor(bytes), "the trailer of the binary property list does not fit its size");
  EXPECT_EQ(reasonFor("bplist00"), "the binary property list has no header and trailer of a known version");
  EXPECT_EQ(reasonFor("bplist15" + whole.substr(8)),
            "the binary property list has no header and trailer of a known version");
}

TEST(PropertyListBinary, AnOffsetOutsideOfTheObjectsIsRefused) {
  std::string whole = document({"\x09"});
  for (const char offset : {'\x02', '\x07', '\x09'}) {
    whole[12] = offset;
    EXPECT_EQ(reasonFor(whole), "an offset lies outside of the objects") << int{offset};
  }
}

TEST(PropertyListBinary, OffsetsAndReferencesMayTakeOneToEightBytes) {
  const auto listOfOne = [](std::size_t offsetSize, std::size_t referenceSize) {
    const std::string objects = "\xA1" + bigEndian(1, referenceSize) + "\x09";
    const std::string table = bigEndian(8, offsetSize) + bigEndian(8 + objects.size() - 1, offsetSize);
    return "bplist00" + objects + table + std::string(6, '\0') + bigEndian(offsetSize, 1) + bigEndian(referenceSize, 1) +
           bigEndian(2, 8) + bigEndian(0, 8) + bigEndian(8 + objects.size(), 8);
  };
  for (std::size_t size = 1; size <= 8; ++size) {
    EXPECT_EQ(parse(listOfOne(size, 2)), Value(Array{true})) << size;
    EXPECT_EQ(parse(listOfOne(2, size)), Value(Array{true})) << size;
  }
  EXPECT_FALSE(parse(listOfOne(9, 2)));
  EXPECT_FALSE(parse(listOfOne(2, 9)));
}

namespace {

std::string sample() {
  return document({"\xD3" + reference(1) + reference(2) + reference(3) + reference(4) + reference(5) + reference(6),
                   "\x51\x61", "\x51\x62", "\x61\x00\xE9"s, "\xA2" + reference(7) + reference(8),
                   "\x13" + std::string(8, '\x01'), real(1, '\x33'), "\x44" + std::string("data"), "\x09"});
}

}  // namespace

TEST(PropertyListBinary, EveryTruncationIsRefused) {
  const std::string whole = sample();
  ASSERT_TRUE(parse(whole));
  for (std::size_t length = 0; length < whole.size(); ++length) EXPECT_FALSE(parse(whole.substr(0, length))) << length;
}

TEST(PropertyListBinary, EveryValueOfEveryByteIsReadOrRefused) {
  const std::string whole = sample();
  for (std::size_t place = 0; place < whole.size(); ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = whole;
      changed[place] = static_cast<char>(byte);
      EXPECT_TRUE(isReadOrRefused(changed));
    }
  }
}

RC_GTEST_PROP(PropertyListBinary, AnyObjectsAreReadOrRefused, (const std::vector<std::string>& objects)) {
  RC_ASSERT(isReadOrRefused(document(objects)));
}
