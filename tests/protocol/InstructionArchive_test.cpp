#include "protocol/InstructionArchive.h"
#include "protocol/ToolProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <string>

namespace {

using InstructionArchive::archivedData;
using InstructionArchive::Instructions;
using InstructionArchive::unarchived;
using ::testing::HasSubstr;

std::string bytesOf(std::string_view hex) {
  std::string bytes;
  std::string digits;
  for (const char c : hex) {
    if (c != ' ' && c != '\n') digits.push_back(c);
    if (digits.size() == 2) {
      bytes.push_back(static_cast<char>(std::stoi(digits, nullptr, 16)));
      digits.clear();
    }
  }
  return bytes;
}

// {"command": "trash file", "file path": "/A.app"} as the classic archiver writes it.
const std::string header = bytesOf("04 0b 73747265616d7479706564 81e803");
const std::string dictionaryClass = bytesOf(
    "8484 13 4e534d757461626c6544696374696f6e617279 00 8484 0c 4e5344696374696f6e617279 00 8484 08 4e534f626a656374 00 85");
const std::string firstString = bytesOf("92 84 8484 08 4e53537472696e67 01 95 84012b");  // up to its length
const std::string nextString = bytesOf("92 84 97 98");
const std::string top = header + bytesOf("840140 84") + dictionaryClass + bytesOf("840169");  // up to the number of pairs

std::string exampleArchive() {
  return top + "\x02" + firstString + "\x07" + protocol::commandKey + "\x86" + nextString + "\x0a" +
         protocol::trashFileCommand + "\x86" + nextString + "\x09" + protocol::filePathKey + "\x86" + nextString + "\x06" +
         "/A.app\x86\x86";
}
const Instructions exampleInstructions{{protocol::commandKey, protocol::trashFileCommand},
                                       {protocol::filePathKey, "/A.app"}};

// An archive of one pair, from what stands after the number of pairs.
std::string onePair(const std::string& rest) { return top + "\x01" + rest; }
std::string key(const std::string& text) { return firstString + static_cast<char>(text.size()) + text + "\x86"; }

std::string reasonFor(const std::string& archive) {
  std::string reason;
  EXPECT_FALSE(unarchived(archive, &reason));
  EXPECT_FALSE(reason.empty());
  return reason;
}

TEST(InstructionArchive, TheExampleIsWrittenByteForByte) {
  EXPECT_EQ(archivedData(exampleInstructions), bytesOf("040b73747265616d747970656481e803840140848484134e534d757461626c65"
                                                       "44696374696f6e6172790084840c4e5344696374696f6e617279008484084e53"
                                                       "4f626a65637400858401690292848484084e53537472696e67019584012b0763"
                                                       "6f6d6d616e6486928497980a74726173682066696c6586928497980966696c65"
                                                       "20706174688692849798062f412e6170708686"));
}

TEST(InstructionArchive, TheExampleIsRead) { EXPECT_EQ(unarchived(exampleArchive()), exampleInstructions); }

TEST(InstructionArchive, AnEmptyDictionaryIsReadAndWritten) {
  EXPECT_EQ(archivedData({}), top + std::string(1, '\0') + "\x86");
  EXPECT_EQ(unarchived(archivedData({})), Instructions{});
}

TEST(InstructionArchive, ALengthOf127IsOneByte) {
  const auto archive = archivedData({{"k", std::string(127, 'x')}});
  EXPECT_THAT(archive, HasSubstr(nextString + "\x7f" + "x"));
}

TEST(InstructionArchive, ALengthOf128TakesTheTwoByteTag) {
  const auto archive = archivedData({{"k", std::string(128, 'x')}});
  EXPECT_THAT(archive, HasSubstr(nextString + "\x81\x80" + std::string(1, '\0') + "x"));
  EXPECT_EQ(unarchived(archive), (Instructions{{"k", std::string(128, 'x')}}));
}

TEST(InstructionArchive, ALengthBeyondTwoSignedBytesTakesTheFourByteTag) {
  const auto archive = archivedData({{"k", std::string(32768, 'x')}});
  EXPECT_THAT(archive, HasSubstr(nextString + bytesOf("82 00800000") + "x"));
  EXPECT_EQ(unarchived(archive)->front().second.size(), 32768U);
}

TEST(InstructionArchive, EqualKeysAndValuesOfDifferentPairsAreKept) {
  const Instructions same{{"a", "b"}, {"b", "a"}, {"c", "b"}};
  EXPECT_EQ(unarchived(archivedData(same)), same);
}

TEST(InstructionArchive, ARepeatedStringMayBeABackReference) {
  // Objects: 0 dictionary, 1 to 3 its classes, 4 the key, 5 NSString; the value is number 4 again.
  EXPECT_EQ(unarchived(onePair(key("same") + bytesOf("92 96 86"))), (Instructions{{"same", "same"}}));
}

TEST(InstructionArchive, AReferenceMayUseTheTwoByteTag) {
  EXPECT_EQ(unarchived(onePair(key("same") + bytesOf("92 8196ff 86"))), (Instructions{{"same", "same"}}));
}

TEST(InstructionArchive, AnImmutableDictionaryIsRead) {
  const auto archive =
      header + bytesOf("840140 84 8484 0c 4e5344696374696f6e617279 00 8484 08 4e534f626a656374 00 85 840169 00 86");
  EXPECT_EQ(unarchived(archive), Instructions{});
}

TEST(InstructionArchive, AMutableStringIsRead) {
  const auto mutableKey = bytesOf(
      "92 84 8484 0f 4e534d757461626c65537472696e67 01 8484 08 4e53537472696e67 01 95 84012b 01 6b 86"
      "92 84 97 99 01 76 86 86");
  EXPECT_EQ(unarchived(onePair(mutableKey)), (Instructions{{"k", "v"}}));
}

TEST(InstructionArchive, TrailingBytesAreRefused) { EXPECT_THAT(reasonFor(exampleArchive() + "x"), HasSubstr("follow")); }

TEST(InstructionArchive, AnotherStreamerVersionIsRefused) {
  auto archive = exampleArchive();
  archive[0] = 3;
  EXPECT_THAT(reasonFor(archive), HasSubstr("typed stream"));
}

TEST(InstructionArchive, AnotherSystemVersionIsRefused) {
  EXPECT_THAT(reasonFor(bytesOf("04 0b 73747265616d7479706564 81e903") + exampleArchive().substr(header.size())),
              HasSubstr("1000"));
}

TEST(InstructionArchive, ADuplicateKeyIsRefused) {
  EXPECT_THAT(reasonFor(archivedData({{"k", "1"}, {"k", "2"}})), HasSubstr("twice"));
}

TEST(InstructionArchive, ANestedDictionaryIsRefused) {
  EXPECT_THAT(reasonFor(onePair(key("k") + bytesOf("92 84 93 94 00 86 86"))), HasSubstr("not a string"));
}

TEST(InstructionArchive, AReferenceToTheDictionaryIsRefused) {
  EXPECT_THAT(reasonFor(onePair(key("k") + bytesOf("92 92 86"))), HasSubstr("not a string"));
}

TEST(InstructionArchive, AReferenceToAClassAsValueIsRefused) {
  EXPECT_THAT(reasonFor(onePair(key("k") + bytesOf("92 93 86"))), HasSubstr("not a string"));
}

TEST(InstructionArchive, AReferenceToNothingIsRefused) {
  EXPECT_THAT(reasonFor(onePair(key("k") + bytesOf("92 7f 86"))), HasSubstr("reference"));
}

TEST(InstructionArchive, AMissingValueIsRefused) {
  EXPECT_THAT(reasonFor(onePair(key("k") + bytesOf("92 85 86"))), HasSubstr("missing"));
}

TEST(InstructionArchive, ANegativeLengthIsRefused) {
  EXPECT_THAT(reasonFor(onePair(firstString + bytesOf("ff") + "x")), HasSubstr("negative"));
}

TEST(InstructionArchive, ALengthBeyondTheEndIsRefused) {
  EXPECT_THAT(reasonFor(onePair(firstString + bytesOf("82 ffffff7f") + "x")), HasSubstr("ends early"));
}

TEST(InstructionArchive, ATagForALengthIsRefused) {
  EXPECT_THAT(reasonFor(onePair(firstString + bytesOf("86") + "x")), HasSubstr("tag"));
}

TEST(InstructionArchive, ANumberAsTopLevelIsRefused) {
  EXPECT_THAT(reasonFor(header + bytesOf("840169 05")), HasSubstr("type"));
}

TEST(InstructionArchive, AStringAsTopLevelIsRefused) {
  EXPECT_THAT(
      reasonFor(header + bytesOf("840140 84 8484 08 4e53537472696e67 01 8484 08 4e534f626a656374 00 85 84012b 00 86")),
      HasSubstr("not a dictionary"));
}

TEST(InstructionArchive, AClassOfAnotherVersionIsRefused) {
  auto archive = exampleArchive();
  archive[header.size() + 4 + 2 + 1 + 19] = 1;
  EXPECT_THAT(reasonFor(archive), HasSubstr("not a dictionary"));
}

TEST(InstructionArchive, AClassAboveItselfIsRefused) {
  EXPECT_THAT(reasonFor(header + bytesOf("840140 84 8484 0c 4e5344696374696f6e617279 00 93 840169 00 86")),
              HasSubstr("not a dictionary"));
}

TEST(InstructionArchive, AnEndlessChainOfClassesIsRefused) {
  std::string archive = header + bytesOf("840140 84");
  for (int i = 0; i < 100; ++i) archive += bytesOf("8484 01 41 00");
  EXPECT_THAT(reasonFor(archive), HasSubstr("too many"));
}

TEST(InstructionArchive, ANulCharacterIsRefused) {
  EXPECT_THAT(reasonFor(archivedData({{protocol::filePathKey, std::string("/A\0.app", 7)}})), HasSubstr("NUL"));
}

class NotUTF8 : public ::testing::TestWithParam<const char*> {};
TEST_P(NotUTF8, IsRefused) { EXPECT_THAT(reasonFor(archivedData({{"k", GetParam()}})), HasSubstr("UTF-8")); }
INSTANTIATE_TEST_SUITE_P(InstructionArchive, NotUTF8,
                         ::testing::Values("\x80", "\xc0\xaf", "\xc3", "\xe0\x80\x80", "\xed\xa0\x80", "\xf0\x80\x80\x80",
                                           "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff"));

TEST(InstructionArchive, TextOfEveryLengthOfSequenceIsRead) {
  const Instructions text{{"a\u00e9\u20ac\U0001F600", "\u4e2d\u6587"}};
  EXPECT_EQ(unarchived(archivedData(text)), text);
}

Instructions pairs(std::size_t count) {
  Instructions many;
  for (std::size_t i = 0; i < count; ++i) many.emplace_back("key" + std::to_string(i), "v");
  return many;
}
TEST(InstructionArchive, SixtyFourPairsAreRead) { EXPECT_EQ(unarchived(archivedData(pairs(64))), pairs(64)); }
TEST(InstructionArchive, SixtyFivePairsAreRefused) { EXPECT_THAT(reasonFor(archivedData(pairs(65))), HasSubstr("pairs")); }

TEST(InstructionArchive, AnArchiveAboveOneMebibyteIsRefused) {
  EXPECT_THAT(reasonFor(archivedData({{"k", std::string(InstructionArchive::maximumBytes, 'x')}})), HasSubstr("too long"));
}

TEST(InstructionArchive, ReferencesCannotExpandBeyondTheLimit) {
  // One long value, then the same again under other keys at a few bytes each.
  const std::string longValue(600000, 'x');
  const auto archive = archivedData({{"a", longValue}, {"b", "v"}});
  const std::string written = nextString + "\x01v\x86\x86";
  const std::string repeated = archive.substr(0, archive.size() - written.size()) + bytesOf("92 98 86");
  EXPECT_THAT(reasonFor(repeated), HasSubstr("too long"));
}

TEST(InstructionArchive, EveryTruncationIsRefused) {
  const auto archive = exampleArchive();
  for (std::size_t length = 0; length < archive.size(); ++length) reasonFor(archive.substr(0, length));
}

TEST(InstructionArchive, EverySingleByteMutationGivesADictionaryOrARefusal) {
  const auto archive = exampleArchive();
  int accepted = 0;
  for (std::size_t at = 0; at < archive.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) {
      auto mutated = archive;
      mutated[at] = static_cast<char>(byte);
      std::string reason;
      const auto read = unarchived(mutated, &reason);
      EXPECT_EQ(read.has_value(), reason.empty());
      if (read && mutated != archive) {
        ++accepted;
        EXPECT_NE(read, exampleInstructions) << "byte " << at << " does not count";
      }
    }
  }
  EXPECT_GT(accepted, 0);
}

TEST(InstructionArchive, AValueIsFoundByItsKey) {
  ASSERT_NE(InstructionArchive::valueForKey(exampleInstructions, protocol::filePathKey), nullptr);
  EXPECT_EQ(*InstructionArchive::valueForKey(exampleInstructions, protocol::filePathKey), "/A.app");
  EXPECT_EQ(InstructionArchive::valueForKey(exampleInstructions, "File path"), nullptr);
}

TEST(InstructionArchive, SettingAKeyThatIsThereReplacesItsValueInPlace) {
  auto instructions = exampleInstructions;
  InstructionArchive::setValueForKey(instructions, protocol::commandKey, protocol::removeFileCommand);
  InstructionArchive::setValueForKey(instructions, protocol::resultPathKey, "/r");
  EXPECT_EQ(instructions, (Instructions{{protocol::commandKey, protocol::removeFileCommand},
                                        {protocol::filePathKey, "/A.app"},
                                        {protocol::resultPathKey, "/r"}}));
}

RC_GTEST_PROP(InstructionArchive, WhatIsWrittenIsReadBack, ()) {
  const auto text = rc::gen::container<std::string>(rc::gen::inRange<char>(1, 127));
  const auto map = *rc::gen::resize(60, rc::gen::container<std::map<std::string, std::string>>(text, text));
  const Instructions instructions(map.begin(), map.end());
  RC_PRE(instructions.size() <= InstructionArchive::maximumPairs);
  RC_ASSERT(unarchived(archivedData(instructions)) == instructions);
}

RC_GTEST_PROP(InstructionArchive, AnyBytesGiveADictionaryOrARefusal, (const std::string& tail)) {
  const auto prefix = *rc::gen::inRange<std::size_t>(0, exampleArchive().size());
  unarchived(exampleArchive().substr(0, prefix) + tail);
}

}  // namespace
