// The support kit: search against the Unicode library's own string search, property lists against libplist, and the times
// of a query and of a localised text.
#include <unicode/coll.h>
#include <unicode/stsearch.h>
#include <unicode/tblcoll.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <random>

#ifdef KELTO_HAS_LIBPLIST
#include <plist/plist.h>
#endif

#include "bench/Report.h"
#include "foundation/plist/PropertyList.h"
#include "kit/KTLocalizer.h"
#include "kit/NSString+Kelto.h"
#include "kit/NSURL+Kelto.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/Bundle.h"

namespace {

std::size_t allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using bench::Report;
using namespace NSString::Kelto;
namespace Unicode = platform::Unicode;

constexpr int titleCount = 100'000;
constexpr std::size_t titleLength = 40;
constexpr std::u16string_view needle = u"rock roll";
constexpr auto options = Unicode::CaseInsensitiveSearch | Unicode::WidthInsensitiveSearch;

// Words of few letters, so that the needle begins often; every fiftieth title has it.
std::vector<std::u16string> titles(const std::vector<std::u16string>& words, std::u16string_view hidden) {
  std::mt19937 random(7);
  std::vector<std::u16string> list;
  for (int i = 0; i < titleCount; ++i) {
    std::u16string title;
    while (title.size() < titleLength) title += words[random() % words.size()] + u" ";
    title.resize(titleLength);
    if (i % 50 == 0) title.replace(titleLength - hidden.size() - random() % 20, hidden.size(), hidden);
    list.push_back(title);
  }
  return list;
}

// The same job by the library: case, accents, blanks and punctuation ignored.
class LibrarySearch {
 public:
  LibrarySearch() {
    UErrorCode error = U_ZERO_ERROR;
    _collator.reset(icu::Collator::createInstance(icu::Locale::getRoot(), error));
    _collator->setStrength(icu::Collator::PRIMARY);
    _collator->setAttribute(UCOL_ALTERNATE_HANDLING, UCOL_SHIFTED, error);
    _search = std::make_unique<icu::StringSearch>(icu::UnicodeString(needle.data(), static_cast<int32_t>(needle.size())),
                                                  icu::UnicodeString("x"),
                                                  dynamic_cast<icu::RuleBasedCollator*>(_collator.get()), nullptr, error);
    if (U_FAILURE(error)) std::abort();
  }

  bool isIn(const std::u16string& text) {
    UErrorCode error = U_ZERO_ERROR;
    _search->setText(icu::UnicodeString(false, text.data(), static_cast<int32_t>(text.size())), error);
    return _search->first(error) != USEARCH_DONE;
  }

 private:
  std::unique_ptr<icu::Collator> _collator;
  std::unique_ptr<icu::StringSearch> _search;
};

void measureSearch(Report& report, const std::string& kind, const std::vector<std::u16string>& list) {
  int ours = 0;
  int theirs = 0;
  LibrarySearch library;
  const auto medians = bench::inTurn({[&] {
                                        const SearchableString prepared(needle, options);
                                        ours = 0;
                                        for (const auto& title : list) ours += prepared.rangeIn(title) != Range{} ? 1 : 0;
                                      },
                                      [&] {
                                        theirs = 0;
                                        for (const auto& title : list) theirs += library.isIn(title) ? 1 : 0;
                                      }});
  const SearchableString prepared(needle, options);
  const std::size_t before = allocations;
  for (const auto& title : list) bench::keep(prepared.rangeIn(title));
  const auto allocated = static_cast<double>(allocations - before);
  report.add("search, " + kind + " titles, each", medians[0] / titleCount * 1e9, "ns", "ICU string search",
             medians[1] / medians[0]);
  report.add("search, " + kind + " titles, allocations each", allocated / titleCount, "");
  if (ours != theirs)
    std::printf("note: %d %s titles found, by the library %d (by design a repeated beginning of the needle hides it)\n",
                ours, kind.c_str(), theirs);
}

void measureQuery(Report& report) {
  std::string url = "kelto://host/path?";
  for (int i = 0; i < 20; ++i) url += (i ? "&key" : "key") + std::to_string(i) + "=some+value%20" + std::to_string(i);
  constexpr int times = 10'000;
  const auto medians = bench::inTurn({[&] {
    for (int i = 0; i < times; ++i) bench::keep(NSURL::Kelto::queryItems(url).size());
  }});
  const double microseconds = medians[0] / times * 1e6;
  report.add("parsing a query of 20 pairs", microseconds, "us", "the bound of 2 us", 2 / microseconds);
}

struct OneBundle final : platform::Bundles {
  explicit OneBundle(std::shared_ptr<const platform::Bundle> bundle) : main(std::move(bundle)) {}
  [[nodiscard]] const platform::Bundle& mainBundle() const override { return *main; }
  [[nodiscard]] std::shared_ptr<const platform::Bundle> bundleWithPath(std::string_view) const override { return nullptr; }
  std::shared_ptr<const platform::Bundle> main;
};

// A bundle on disk, a table of 500 texts.
void measureLocalizedText(Report& report) {
  std::string folder = (std::filesystem::temp_directory_path() / "bench_kit_XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) std::abort();
  const std::string resources = folder + "/Bench.app/Contents/Resources/en.lproj";
  std::filesystem::create_directories(resources);
  std::ofstream table(resources + "/Localizable.strings");
  for (int i = 0; i < 500; ++i)
    table << "\"<InstallerMessage" << i << "_1>\" = \"The application %@ could not be installed.\";\n";
  table.close();

  platform::fake::FakePlatform fake;
  const platform::Linux::Bundles bundles(fake.systemLog, [] { return std::vector<std::string>{"en"}; });
  OneBundle one(bundles.bundleWithPath(folder + "/Bench.app"));
  platform::Platform real = platform::fake::platformOf(fake, {.bundles = &one});
  const platform::Installation installation(real);
  const auto* localizer = KTLocalizer::sharedLocalizer();
  const std::string name = "Kelto Controller";
  const std::string key = "<InstallerMessage250_1>";
  if (localizer->localizedStringForKey(key, name) != "The application Kelto Controller could not be installed.")
    std::abort();
  constexpr int times = 100'000;
  const auto medians = bench::inTurn({[&] {
    for (int i = 0; i < times; ++i) bench::keep(localizer->localizedStringForKey(key, name).size());
  }});
  const double nanoseconds = medians[0] / times * 1e9;
  report.add("localised text with one argument", nanoseconds, "ns", "the bound of 300 ns", 300 / nanoseconds);
  std::filesystem::remove_all(folder);
}

foundation::PropertyList::Value tenThousandKeys() {
  foundation::PropertyList::Dictionary dictionary;
  for (int i = 0; i < 10'000; ++i) {
    foundation::PropertyList::Value value = "Some text for the key, with an & in it";
    if (i % 4 == 1) value = i;
    if (i % 4 == 2) value = i % 8 == 2;
    if (i % 4 == 3) value = foundation::PropertyList::Array{"one", i, 1.5};
    dictionary.emplace("Key " + std::to_string(i), value);
  }
  return dictionary;
}

#ifdef KELTO_HAS_LIBPLIST
void parseByLibplist(const std::string& bytes, bool isBinary) {
  plist_t list = nullptr;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  if (isBinary)
    plist_from_bin(bytes.data(), length, &list);
  else
    plist_from_xml(bytes.data(), length, &list);
  if (list == nullptr) std::abort();
  plist_free(list);
}

std::string binaryByLibplist(const std::string& xml) {
  plist_t list = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &list);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(list, &bytes, &length);
  std::string binary(bytes, length);
  plist_free(list);
  plist_to_bin_free(bytes);
  return binary;
}

void measureForm(Report& report, const std::string& form, const std::string& bytes) {
  const auto parse = [&] {
    if (!foundation::PropertyList::parse(bytes)) std::abort();
  };
  const auto medians = bench::inTurn({parse, [&] { parseByLibplist(bytes, form == "binary"); }}, 15);
  report.add("reading " + form + ", 10,000 keys", medians[0] * 1e3, "ms", "libplist", medians[1] / medians[0]);
}

void measurePropertyLists(Report& report) {
  const std::string xml = foundation::PropertyList::serializeXML(tenThousandKeys());
  measureForm(report, "XML", xml);
  measureForm(report, "binary", binaryByLibplist(xml));
}
#else
void measurePropertyLists(Report& report) {
  const std::string xml = foundation::PropertyList::serializeXML(tenThousandKeys());
  const auto medians = bench::inTurn({[&] { bench::keep(foundation::PropertyList::parse(xml).has_value()); }}, 15);
  report.add("reading XML, 10,000 keys", medians[0] * 1e3, "ms");
  std::printf("note: libplist was not there when this was built; property lists have no peer here\n");
}
#endif

}  // namespace

int main(int argc, char** argv) {
  Report report;
  measureSearch(report, "ASCII",
                titles({u"Rocks", u"Roll", u"the", u"Rolling", u"Stones", u"of", u"Love", u"and", u"roses", u"Rocket"},
                       u"Rock & Roll"));
  measureSearch(report, "accented",
                titles({u"Röcke", u"Café", u"déjà", u"vu", u"Straße", u"Ñandú", u"über", u"Rolling", u"Ødegård", u"rué"},
                       u"Röck & Roll"));
  measureSearch(report, "Greek and Japanese",
                titles({u"Ρόδος", u"ελληνικά", u"音楽", u"ロック", u"Ｒｏｃｋet", u"の", u"Rolling", u"ガーデン"},
                       u"Ｒｏｃｋ & Roll"));
  measureQuery(report);
  measureLocalizedText(report);
  measurePropertyLists(report);
  report.print();
  return argc < 2 || report.write(argv[1]) ? 0 : 1;
}
