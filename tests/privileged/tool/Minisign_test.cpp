#include "privileged/tool/Minisign.h"

#include <cctype>

#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::HasSubstr;

class MinisignTest : public ::testing::Test {
 protected:
  // The signature of `text` as the real program writes it.
  std::string signatureOf(const std::string& text, const std::string& options = {}) {
    const auto path = folder.path("message");
    tests::writeFile(path, text);
    key.sign(path, options);
    return tests::readFile(path + ".minisig");
  }
  static std::optional<std::string> fault(const std::string& signature, const KeyPair& pair, const std::string& text) {
    return Minisign::faultOf(Minisign::signatureOfFile(signature), pair.key(), text);
  }
  // `text` with the character at `place` replaced by another letter of Base64.
  static std::string changed(std::string text, std::size_t place) {
    text.at(place) = text.at(place) == 'B' ? 'C' : 'B';
    return text;
  }

  tests::TemporaryFolder folder;
  KeyPair key{folder, "key"};
};

TEST_F(MinisignTest, BothFormsOfSignatureAreTaken) {
  const auto plain = signatureOf("a message", "-l");
  const auto prehashed = signatureOf("a message");
  EXPECT_FALSE(Minisign::signatureOfFile(plain).isPrehashed);
  EXPECT_TRUE(Minisign::signatureOfFile(prehashed).isPrehashed);
  EXPECT_EQ(fault(plain, key, "a message"), std::nullopt);
  EXPECT_EQ(fault(prehashed, key, "a message"), std::nullopt);
}

TEST_F(MinisignTest, AnEmptyMessageCanBeSigned) {
  for (const char* form : {"-l", ""}) EXPECT_EQ(fault(signatureOf("", form), key, ""), std::nullopt) << form;
}

TEST_F(MinisignTest, AnotherMessageIsRefused) {
  for (const char* form : {"-l", ""}) {
    const auto signature = signatureOf("a message", form);
    for (const char* other : {"a messagf", "a message ", "a messag", ""})
      EXPECT_EQ(fault(signature, key, other), "the signature does not match") << form << other;
  }
}

TEST_F(MinisignTest, OneFormDoesNotPassForTheOther) {
  auto signature = Minisign::signatureOfFile(signatureOf("a message"));
  signature.isPrehashed = false;
  EXPECT_EQ(Minisign::faultOf(signature, key.key(), "a message"), "the signature does not match");
}

TEST_F(MinisignTest, AnotherKeyIsRefused) {
  const KeyPair other(folder, "other");
  EXPECT_EQ(fault(signatureOf("a message"), other, "a message"), "the signature names another key");
}

TEST_F(MinisignTest, AnotherKeyWithTheSameIdentifierIsRefused) {
  auto forged = KeyPair(folder, "other").key();
  forged.identifier = key.key().identifier;
  const auto signature = Minisign::signatureOfFile(signatureOf("a message"));
  EXPECT_EQ(Minisign::faultOf(signature, forged, "a message"), "the signature does not match");
}

TEST_F(MinisignTest, AForgedTrustedCommentIsRefused) {
  for (const char* form : {"-l", ""}) {
    auto signature = signatureOf("a message", std::string(form) + " -t 'version 1'");
    EXPECT_EQ(Minisign::signatureOfFile(signature).trustedComment, "version 1");
    EXPECT_EQ(fault(signature, key, "a message"), std::nullopt);
    signature.replace(signature.find("version 1"), 9, "version 2");
    EXPECT_EQ(fault(signature, key, "a message"), "the signature's trusted comment is forged");
  }
}

TEST_F(MinisignTest, ACommentSignedForAnotherSignatureIsRefused) {
  const auto first = Minisign::signatureOfFile(signatureOf("a message", "-t one"));
  auto second = Minisign::signatureOfFile(signatureOf("another", "-t two"));
  second.trustedComment = first.trustedComment;
  second.ofComment = first.ofComment;
  EXPECT_EQ(Minisign::faultOf(second, key.key(), "another"), "the signature's trusted comment is forged");
}

TEST_F(MinisignTest, ATruncatedSignatureFileIsRefusedWhereverItEnds) {
  const auto whole = signatureOf("a message");
  for (std::size_t length = 0; length + 1 < whole.size(); ++length) {
    const auto cut = whole.substr(0, length);
    EXPECT_NE(refusalOf([&] { Minisign::signatureOfFile(cut); }), "") << length;
  }
  EXPECT_EQ(fault(whole.substr(0, whole.size() - 1), key, "a message"), std::nullopt) << "without the last line break";
}

TEST_F(MinisignTest, EveryChangedCharacterOfTheTwoSignaturesIsRefused) {
  const auto whole = signatureOf("a message");
  for (std::size_t place = 0; place < whole.size(); ++place) {
    const auto line = std::count(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(place), '\n');
    if (line % 2 == 0 || whole[place] == '\n') continue;
    const auto altered = changed(whole, place);
    std::string reason;
    reason = refusalOf([&] { reason = fault(altered, key, "a message").value_or(""); }) + reason;
    EXPECT_NE(reason, "") << place;
  }
}

TEST_F(MinisignTest, LineBreaksOfBothKindsAreTaken) {
  std::string signature;
  for (const char character : signatureOf("a message"))
    signature += character == '\n' ? std::string("\r\n") : std::string(1, character);
  EXPECT_EQ(fault(signature, key, "a message"), std::nullopt);
}

TEST_F(MinisignTest, AKeyIsReadAsTheProgramPrintsIt) {
  const auto file = key.file();
  const auto line = file.substr(file.find('\n') + 1, 56);
  EXPECT_EQ(Minisign::publicKeyOfText(line), key.key());
  EXPECT_EQ(Minisign::textOf(key.key()), line);
  EXPECT_THAT(file, HasSubstr("minisign public key " + Minisign::textOf(key.key().identifier)));
}

TEST_F(MinisignTest, AnIdentifierIsPrintedWithoutZerosBeforeIt) {
  EXPECT_EQ(Minisign::textOf(Minisign::KeyIdentifier{0x11, 0xE7, 0xB7, 0x16, 0x1B, 0x94, 0xEE, 0xF9}), "F9EE941B16B7E711");
  EXPECT_EQ(Minisign::textOf(Minisign::KeyIdentifier{0x11, 0xE7, 0xB7, 0x16, 0x1B, 0x94, 0x0E, 0}), "E941B16B7E711");
  EXPECT_EQ(Minisign::textOf(Minisign::KeyIdentifier{}), "0");
}

TEST_F(MinisignTest, MalformedKeysAreRefused) {
  const auto file = key.file();
  const auto line = file.substr(file.find('\n') + 1, 56);
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfFile(line); }), HasSubstr("not a public key"));
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfFile(file + "more\n"); }), HasSubstr("not a public key"));
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfFile("comment\n" + line); }), HasSubstr("not a public key"));
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfText(line.substr(4)); }), HasSubstr("Base64"));
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfText(line + "AAAA"); }), HasSubstr("Base64"));
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfText(" " + line); }), HasSubstr("Base64"));
  EXPECT_THAT(refusalOf([&] { Minisign::publicKeyOfText("QQ" + line.substr(2)); }), HasSubstr("unknown kind"));
}

TEST_F(MinisignTest, BytesThatAreNotBase64AreRefused) {
  const auto line = Minisign::textOf(key.key());
  for (int byte = 0; byte < 256; ++byte) {
    const auto character = static_cast<char>(byte);
    auto altered = line;
    altered[40] = character;
    const bool isBase64 = ::isalnum(byte) != 0 || character == '+' || character == '/';
    EXPECT_EQ(refusalOf([&] { Minisign::publicKeyOfText(altered); }).empty(), isBase64) << byte;
  }
}

TEST_F(MinisignTest, MalformedSignaturesAreRefused) {
  auto signature = signatureOf("a message");
  EXPECT_THAT(refusalOf([&] { Minisign::signatureOfFile(signature + "\n"); }), HasSubstr("four lines"));
  EXPECT_THAT(refusalOf([&] { Minisign::signatureOfFile(std::string(20000, 'x')); }), HasSubstr("longer"));
  signature.replace(signature.find('\n') + 1, 2, "QQ");
  EXPECT_THAT(refusalOf([&] { Minisign::signatureOfFile(signature); }), HasSubstr("unknown kind"));
}

}  // namespace
}  // namespace tests::tool
