#include "foundation/plist/PropertyList.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <span>

#include "foundation/text/UTF8.h"
#include "tests/support/TemporaryFolder.h"

using namespace std::chrono_literals;
using foundation::Date;
using foundation::PropertyList::Array;
using foundation::PropertyList::Data;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::parse;
using foundation::PropertyList::serializeXML;
using foundation::PropertyList::Value;

namespace {

constexpr auto leapDay = std::chrono::sys_days(std::chrono::year(2024) / 2 / 29);

Data bytes(std::string_view text) {
  const auto span = std::as_bytes(std::span(text));
  return {span.begin(), span.end()};
}

// A value and no reason, or a reason and no value.
bool isReadOrRefused(std::string_view bytes) {
  std::string reason;
  const bool isRead = parse(bytes, &reason).has_value();
  return isRead == reason.empty();
}

std::string reasonFor(std::string_view document) {
  std::string reason;
  EXPECT_FALSE(parse(document, &reason));
  return reason;
}

std::optional<Value> inPlist(const std::string& element) { return parse("<plist version=\"1.0\">" + element + "</plist>"); }

// The standard output of `program`, run by the interpreter of another language with its own library.
std::string python(const std::string& program) {
  std::string output;
  std::array<char, 4096> buffer{};
  FILE* pipe = ::popen(("python3 -c '" + program + "'").c_str(), "r");
  for (std::size_t count = 0; (count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    output.append(buffer.data(), count);
  EXPECT_EQ(::pclose(pipe), 0) << program;
  return output;
}

// A value with every type, as the other library writes it.
const std::string everythingInPython = R"(
import plistlib, datetime, sys
value = {
  "text": "a <b> & \"c\" é 😀", "empty": "", "ascii": "plain", "lines": "a\n\tb",
  "true": True, "false": False,
  "zero": 0, "byte": 200, "short": 40000, "word": 3000000000, "long": 2**62, "negative": -1, "least": -2**63,
  "real": 1.5, "tiny": -2.5e-300,
  "date": datetime.datetime(2024, 2, 29, 12, 34, 56), "early": datetime.datetime(1999, 12, 31, 23, 59, 59),
  "data": b"\x00\x01\xfe\xff", "nothing": b"", "many": b"0123456789" * 30,
  "list": [1, "1", True, [], {}], "dict": {"a": {"b": {"c": []}}}, "é": 1,
  "long list": list(range(300)), "long text": "x" * 70000,
})";

Value everything() {
  Array numbers;
  for (int i = 0; i < 300; ++i) numbers.emplace_back(i);
  std::string many;
  for (int i = 0; i < 30; ++i) many += "0123456789";
  return Dictionary{{"text", "a <b> & \"c\" é 😀"},
                    {"empty", ""},
                    {"ascii", "plain"},
                    {"lines", "a\n\tb"},
                    {"true", true},
                    {"false", false},
                    {"zero", 0},
                    {"byte", 200},
                    {"short", 40000},
                    {"word", std::int64_t{3'000'000'000}},
                    {"long", std::int64_t{1} << 62},
                    {"negative", -1},
                    {"least", std::numeric_limits<std::int64_t>::min()},
                    {"real", 1.5},
                    {"tiny", -2.5e-300},
                    {"date", Date(leapDay + 12h + 34min + 56s)},
                    {"early", Date(std::chrono::sys_days(std::chrono::year(2000) / 1 / 1) - 1s)},
                    {"data", bytes(std::string_view("\x00\x01\xFE\xFF", 4))},
                    {"nothing", Data()},
                    {"many", bytes(many)},
                    {"list", Array{1, "1", true, Array(), Dictionary()}},
                    {"dict", Dictionary{{"a", Dictionary{{"b", Dictionary{{"c", Array()}}}}}}},
                    {"é", 1},
                    {"long list", numbers},
                    {"long text", std::string(70000, 'x')}};
}

std::string nested(std::size_t depth) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += "<array>";
  for (std::size_t i = 0; i < depth; ++i) text += "</array>";
  return text;
}

}  // namespace

// The XML form.

TEST(PropertyListXML, ReadsEveryType) {
  EXPECT_EQ(inPlist("<string>a</string>"), Value("a"));
  EXPECT_EQ(inPlist("<true/>"), Value(true));
  EXPECT_EQ(inPlist("<false></false>"), Value(false));
  EXPECT_EQ(inPlist("<integer> -12 </integer>"), Value(-12));
  EXPECT_EQ(inPlist("<real>2.5e3</real>"), Value(2500.0));
  EXPECT_EQ(inPlist("<date>2024-02-29T12:34:56Z</date>"), Value(Date(leapDay + 12h + 34min + 56s)));
  EXPECT_EQ(inPlist("<data>\n\tAAH+\n\t/w==\n</data>"), Value(bytes(std::string_view("\x00\x01\xFE\xFF", 4))));
  EXPECT_EQ(inPlist("<array><string/><array/></array>"), Value(Array{"", Array()}));
  EXPECT_EQ(inPlist("<dict><key>k</key><integer>1</integer></dict>"), Value(Dictionary{{"k", 1}}));
}

TEST(PropertyListXML, TypesAreKeptApart) {
  EXPECT_NE(inPlist("<integer>1</integer>"), inPlist("<true/>"));
  EXPECT_NE(inPlist("<integer>1</integer>"), inPlist("<real>1</real>"));
  EXPECT_NE(inPlist("<integer>1</integer>"), inPlist("<string>1</string>"));
}

TEST(PropertyListXML, ReadsTheFormThatTheOtherLibraryWrites) {
  EXPECT_EQ(parse(python(everythingInPython + "\nsys.stdout.buffer.write(plistlib.dumps(value))")), everything());
}

TEST(PropertyListBinary, ReadsTheFormThatTheOtherLibraryWrites) {
  const std::string write = "\nsys.stdout.buffer.write(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))";
  EXPECT_EQ(parse(python(everythingInPython + write)), everything());
}

TEST(PropertyListXML, TheOtherLibraryReadsTheWrittenForm) {
  const tests::TemporaryFolder folder;
  const auto path = folder.path("x.plist");
  tests::writeFile(path, serializeXML(everything()));
  const std::string compare =
      "\nread = plistlib.load(open(\"" + path + "\", \"rb\"))\nprint(repr(read) == repr(dict(sorted(value.items()))))";
  EXPECT_EQ(python(everythingInPython + compare), "True\n");
}

TEST(PropertyListXML, TheWrapperMayBeMissing) { EXPECT_EQ(parse("<dict/>"), Value(Dictionary())); }

TEST(PropertyListXML, CommentsInstructionsAndTheDocumentTypeAreSkipped) {
  EXPECT_EQ(
      parse(
          "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- <dict> -->\n"
          "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://example.com/a>b[c\">\n<?p i?>"
          "<plist a='>' version=\"1.0\"><array><!-- one --><string>a<!-- b -->c<?d?></string></array></plist> \n<!-- -->"),
      Value(Array{"ac"}));
}

TEST(PropertyListXML, ReadsCharacterDataSections) {
  EXPECT_EQ(inPlist("<string>a<![CDATA[<b>&amp;]]]>c</string>"), Value("a<b>&amp;]c"));
}

TEST(PropertyListXML, ReadsReferences) {
  EXPECT_EQ(inPlist("<string>&lt;&gt;&amp;&quot;&apos;&#65;&#x20AC;&#x1F600;&amp;lt;</string>"), Value("<>&\"'A€😀&lt;"));
}

TEST(PropertyListXML, LineEndsBecomeLineFeeds) {
  EXPECT_EQ(inPlist("<string>a\r\nb\rc&#13;</string>"), Value("a\nb\nc\r"));
}

TEST(PropertyListXML, ReadsUTF16) {
  const std::u16string text = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><string>é€😀</string></plist>";
  std::string little = "\xFF\xFE";
  std::string big = "\xFE\xFF";
  for (const char16_t unit : text) {
    little.append({static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)});
    big.append({static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)});
  }
  EXPECT_EQ(parse(little), Value("é€😀"));
  EXPECT_EQ(parse(big), Value("é€😀"));
}

TEST(PropertyListXML, IntegersReachOverSixtyFourBitsAndNoFurther) {
  EXPECT_EQ(inPlist("<integer>9223372036854775807</integer>"), Value(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(inPlist("<integer>-9223372036854775808</integer>"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(inPlist("<integer>+0x1F</integer>"), Value(31));
  for (const char* text : {"9223372036854775808", "-9223372036854775809", "1.5", "", "-", "--1", "0x", "1 2", "12a"})
    EXPECT_FALSE(inPlist("<integer>" + std::string(text) + "</integer>")) << text;
}

TEST(PropertyListXML, RealsHaveInfinities) {
  EXPECT_EQ(inPlist("<real>+infinity</real>"), Value(std::numeric_limits<double>::infinity()));
  EXPECT_EQ(inPlist("<real>-infinity</real>"), Value(-std::numeric_limits<double>::infinity()));
  EXPECT_TRUE(std::isnan(*inPlist("<real>nan</real>")->as<double>()));
  EXPECT_EQ(parse(serializeXML(std::numeric_limits<double>::infinity())), Value(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(inPlist("<real>one</real>"));
}

TEST(PropertyListXML, DatesThatDoNotExistAreRefused) {
  for (const char* text : {"2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z", "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z",
                           "2024-01-01", "2024-01-01T00:00:00", "yesterday", ""})
    EXPECT_FALSE(inPlist("<date>" + std::string(text) + "</date>")) << text;
}

TEST(PropertyListXML, DatesBeyondTheRangeBecomeItsEnds) {
  EXPECT_EQ(inPlist("<date>9999-12-31T00:00:00Z</date>"), Value(Date::max()));
  EXPECT_EQ(inPlist("<date>0001-01-01T00:00:00Z</date>"), Value(Date::min()));
}

TEST(PropertyListXML, DataThatIsNotInBase64IsRefused) {
  for (const char* text : {"A", "AAA", "AA=", "AA===", "AA==AA==", "A*==", "="})
    EXPECT_FALSE(inPlist("<data>" + std::string(text) + "</data>")) << text;
}

TEST(PropertyListXML, ALaterKeyWins) {
  EXPECT_EQ(inPlist("<dict><key>a</key><true/><key>a</key><false/></dict>"), Value(Dictionary{{"a", false}}));
}

TEST(PropertyListXML, ARefusalNamesTheLine) {
  EXPECT_EQ(reasonFor("<plist>\n<dict>\n<true/></dict></plist>"), "line 3: a dictionary has a value without a key");
  EXPECT_EQ(reasonFor("<plist>\n<string>a</integer></plist>"), "line 2: </string> is missing");
  EXPECT_EQ(reasonFor("<plist><array>\n\nx</array></plist>"), "line 3: text stands where an element should begin");
  EXPECT_EQ(reasonFor("<plist><date/></plist>"), "line 1: not a valid date");
  EXPECT_EQ(reasonFor("<plist><set/></plist>"), "line 1: <set> is not a kind of value");
  EXPECT_EQ(reasonFor("<true/><true/>"), "line 1: something follows the value");
  EXPECT_EQ(reasonFor("<plist><true/><true/></plist>"), "line 1: </plist> is missing");
  EXPECT_EQ(reasonFor("<plist></plist>"), "line 1: </plist> stands where a value should begin");
  EXPECT_EQ(reasonFor("<plist><dict><key>a</key></dict></plist>"), "line 1: </dict> stands where a value should begin");
  EXPECT_EQ(reasonFor("<string>\x01</string>"), "line 1: the text holds a control character");
}

TEST(PropertyListXML, TheReasonIsUntouchedOnSuccess) {
  std::string reason = "before";
  EXPECT_TRUE(parse("<true/>", &reason));
  EXPECT_EQ(reason, "before");
}

TEST(PropertyListXML, EntitiesAreNeitherDeclaredNorExpanded) {
  const std::string laughs =
      "<!DOCTYPE lolz [<!ENTITY lol \"lol\"><!ENTITY lol2 \"&lol;&lol;&lol;\">]><plist><string>&lol2;</string></plist>";
  EXPECT_EQ(reasonFor(laughs), "line 1: a document type with declarations of its own is not read");
  EXPECT_FALSE(inPlist("<string>&lol;</string>"));
  EXPECT_FALSE(inPlist("<string>&#0;</string>"));
  EXPECT_FALSE(inPlist("<string>&#xD800;</string>"));
  EXPECT_FALSE(inPlist("<string>&#x110000;</string>"));
  EXPECT_FALSE(inPlist("<string>&#99999999999999999999999;</string>"));
  EXPECT_FALSE(inPlist("<string>& </string>"));
}

TEST(PropertyListXML, ContainersMayLieSixtyFourDeepAndNoDeeper) {
  EXPECT_TRUE(inPlist(nested(64)));
  EXPECT_FALSE(inPlist(nested(65)));
  EXPECT_EQ(reasonFor(nested(1'000'000)), "line 1: containers lie more than 64 deep");
}

TEST(PropertyListXML, AMillionValuesAreReadAndNoMore) {
  std::string text = "<array>";
  for (int i = 0; i < 999'999; ++i) text += "<true/>";
  EXPECT_TRUE(parse(text + "</array>"));
  text += "<true/>";
  EXPECT_EQ(reasonFor(text + "</array>"), "line 1: more than 1000000 values");
}

TEST(PropertyListXML, TooManyBytesAreRefused) {
  EXPECT_EQ(reasonFor("<string>" + std::string(std::size_t{16} << 20, 'a') + "</string>"),
            "the document is larger than 16777216 bytes");
}

TEST(PropertyListXML, BytesThatAreNotTextAreRefused) {
  EXPECT_EQ(reasonFor("<string>\xE9</string>"),
            "the document is neither a binary property list nor well-formed UTF-8 or UTF-16 text");
  EXPECT_EQ(reasonFor(""), "line 1: the document ends early");
}

TEST(PropertyListXML, EveryTruncationIsRefused) {
  const std::string whole = serializeXML(Dictionary{{"a&b", Array{1, 2.5, "x", true, bytes("abc"), Date(leapDay)}}});
  const auto end = whole.find("</plist>") + std::string_view("</plist>").size();
  for (std::size_t length = 0; length < end; ++length) EXPECT_FALSE(parse(whole.substr(0, length))) << length;
}

TEST(PropertyListXML, EveryMutationOfAByteIsReadOrRefused) {
  const std::string whole = serializeXML(Dictionary{{"a&b", Array{1, 2.5, "é", true, bytes("abc"), Date(leapDay)}}});
  for (std::size_t place = 0; place < whole.size(); ++place) {
    for (const char c : {'<', '>', '/', '&', '"', '!', '[', '\0', '\xFF'}) {
      std::string changed = whole;
      changed[place] = c;
      EXPECT_TRUE(isReadOrRefused(changed));
    }
  }
}

TEST(PropertyListXML, IsWrittenAsThePlatformsToolsWriteIt) {
  EXPECT_EQ(serializeXML(Dictionary{{"b", Array{1, "<&>"}}, {"a", true}, {"c", Dictionary()}, {"d", bytes("abc")}}),
            R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>a</key>
	<true/>
	<key>b</key>
	<array>
		<integer>1</integer>
		<string>&lt;&amp;&gt;</string>
	</array>
	<key>c</key>
	<dict/>
	<key>d</key>
	<data>
	YWJj
	</data>
</dict>
</plist>
)");
}

namespace {

rc::Gen<std::string> anyText() {
  const auto character =
      rc::gen::oneOf(rc::gen::inRange<char32_t>(0x20, 0x7F), rc::gen::elementOf(std::u32string(U"\t\n\r<>&\"' é€😀")));
  return rc::gen::map(rc::gen::container<std::u32string>(character), [](const std::u32string& characters) {
    std::string text;
    for (const char32_t each : characters) foundation::appendUTF8(text, each);
    return text;
  });
}

rc::Gen<Value> anyValue(int depth) {
  const auto wrap = [](auto gen) { return rc::gen::map(std::move(gen), [](auto held) { return Value(std::move(held)); }); };
  const auto scalar = rc::gen::oneOf(
      wrap(anyText()), wrap(rc::gen::arbitrary<bool>()), wrap(rc::gen::arbitrary<std::int64_t>()),
      wrap(rc::gen::arbitrary<double>()),
      rc::gen::map(rc::gen::inRange<std::int64_t>(-9'000'000'000, 9'000'000'000),
                   [](std::int64_t seconds) { return Value(Date(std::chrono::seconds(seconds))); }),
      rc::gen::map(rc::gen::arbitrary<std::string>(), [](const std::string& text) { return Value(bytes(text)); }));
  if (depth == 0) return scalar;
  return rc::gen::oneOf(scalar, wrap(rc::gen::container<Array>(anyValue(depth - 1))),
                        wrap(rc::gen::container<Dictionary>(anyText(), anyValue(depth - 1))));
}

}  // namespace

RC_GTEST_PROP(PropertyListXML, ReadsBackEveryValueThatItWrites, ()) {
  const auto value = *anyValue(2);
  RC_ASSERT(parse(serializeXML(value)) == value);
}

RC_GTEST_PROP(PropertyListXML, AnyBytesAreReadOrRefused, (const std::string& bytes)) { RC_ASSERT(isReadOrRefused(bytes)); }
