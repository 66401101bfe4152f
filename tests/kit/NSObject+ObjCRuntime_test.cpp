#include "kit/NSObject+ObjCRuntime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace NSObject::ObjCRuntime;
using foundation::Class;
using foundation::ClassRegistry;
using foundation::Implementation;

namespace {

int one() { return 1; }
int two() { return 2; }
int three() { return 3; }
double four(double value) { return value * 4; }

int call(Implementation implementation) { return implementation.as<int()>()(); }

struct Thing : foundation::Object {
  explicit Thing(Class* of) : _class(of) {}
  [[nodiscard]] Class* registeredClass() const override { return _class; }
  Class* _class;
};

// Methods that ask for themselves, each with code of its own.
using SelfAsking = Implementation(const foundation::Object&, int&);
[[gnu::noinline]] Implementation asksInBase(const foundation::Object& self, int& mark) {
  mark += 1;
  auto found = impOfCallingMethod(self, "ask");
  mark += 10;
  return found;
}
[[gnu::noinline]] Implementation asksInLeaf(const foundation::Object& self, int& mark) {
  mark += 100;
  auto found = impOfCallingMethod(self, "ask");
  mark += 2000;
  return found;
}
[[gnu::noinline]] Implementation asksFromElsewhere(const foundation::Object& self, int& mark) {
  mark += 30000;
  auto found = impOfCallingMethod(self, "missing");
  mark += 5;
  return found;
}

// An implementation whose entry is at an address; never called.
Implementation at(std::uintptr_t address) { return {reinterpret_cast<int (*)()>(address)}; }

// Looks up from a place with an entry of its own.
[[gnu::noinline]] Implementation lookUp(const foundation::Object& self, std::string_view selector) {
  return getOriginalImplementationOfMethod(self, selector);
}

[[gnu::noinline]] Implementation lookUpCaller(const foundation::Object& self, std::string_view selector) {
  return impOfCallingMethod(self, selector);
}

[[gnu::noinline]] Implementation callsTheCaller(const foundation::Object& self, int& mark) {
  const Implementation found = lookUpCaller(self, "ask");
  mark += 1;
  return found;
}

std::uintptr_t lookUpCode() { return reinterpret_cast<std::uintptr_t>(&lookUp); }

// The rules of the look-up, over the entries in the order of the method lists; `position` is that of the call.
std::uintptr_t slowOriginal(const std::vector<std::vector<std::uintptr_t>>& lists, std::uintptr_t position) {
  std::uintptr_t current = 0;
  for (const auto& list : lists)
    for (const auto entry : list)
      if (entry < position && !(entry < current)) current = entry;
  if (current == 0) return 0;
  bool isSeen = false;
  for (const auto& list : lists)
    for (const auto entry : list) {
      if (entry == current)
        isSeen = true;
      else if (isSeen)
        return entry;
      else
        isSeen = false;
    }
  return 0;
}

// Real methods, in a class and in its category. The category's replaces that of the class, and calls it.
using Greeting = std::string(const foundation::Object&);

[[gnu::noinline]] std::string greetingOfTheClass(const foundation::Object& /*self*/) { return "hello"; }

[[gnu::noinline]] std::string greetingOfTheCategory(const foundation::Object& self) {
  const auto original = getOriginalImplementationOfMethod(self, "greeting");
  return original ? "well, " + original.as<Greeting>()(self) : "nothing to replace";
}

[[gnu::noinline]] std::string greetingOfALaterCategory(const foundation::Object& self) {
  const auto original = getOriginalImplementationOfMethod(self, "greeting");
  return original ? "oh " + original.as<Greeting>()(self) : "nothing to replace";
}

}  // namespace

TEST(Swizzle, ExchangesTwoMethods) {
  ClassRegistry registry;
  Class* target = registry.add("Target", nullptr, {{"a", one}, {"b", two}});
  EXPECT_TRUE(swizzleSelector_toSelector(*target, "a", "b"));
  EXPECT_EQ(call(target->instanceMethod("a")), 2);
  EXPECT_EQ(call(target->instanceMethod("b")), 1);
}

TEST(Swizzle, AnUnknownSelectorChangesNothing) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"a", one}});
  Class* leaf = registry.add("Leaf", base, {});
  EXPECT_FALSE(swizzleSelector_toSelector(*leaf, "a", "unknown"));
  EXPECT_FALSE(swizzleSelector_toSelector(*leaf, "unknown", "a"));
  EXPECT_TRUE(leaf->methodList().empty());
  EXPECT_EQ(call(base->instanceMethod("a")), 1);
}

TEST(Swizzle, InheritedMethodsAreExchangedInTheSubclassOnly) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"a", one}, {"b", two}});
  Class* leaf = registry.add("Leaf", base, {});
  EXPECT_TRUE(swizzleSelector_toSelector(*leaf, "a", "b"));
  EXPECT_EQ(call(leaf->instanceMethod("a")), 2);
  EXPECT_EQ(call(leaf->instanceMethod("b")), 1);
  EXPECT_EQ(call(base->instanceMethod("a")), 1);
  EXPECT_EQ(call(base->instanceMethod("b")), 2);
}

TEST(Swizzle, AnOwnAndAnInheritedMethodAreExchanged) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"a", one}, {"b", two}});
  Class* leaf = registry.add("Leaf", base, {{"a", three}});
  EXPECT_TRUE(swizzleSelector_toSelector(*leaf, "a", "b"));
  EXPECT_EQ(call(leaf->instanceMethod("a")), 2);
  EXPECT_EQ(call(leaf->instanceMethod("b")), 3);
  EXPECT_EQ(call(base->instanceMethod("b")), 2);
}

TEST(Swizzle, TheEncodingGoesWithTheImplementation) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"a", one}, {"b", four}});
  Class* leaf = registry.add("Leaf", base, {});
  swizzleSelector_toSelector(*leaf, "a", "b");
  ASSERT_NE(leaf->instanceMethod("a").as<double(double)>(), nullptr);
  EXPECT_EQ(leaf->instanceMethod("a").as<double(double)>()(2), 8);
}

TEST(Swizzle, TwiceIsAsBefore) {
  ClassRegistry registry;
  Class* target = registry.add("Target", nullptr, {{"a", one}, {"b", two}});
  swizzleSelector_toSelector(*target, "a", "b");
  swizzleSelector_toSelector(*target, "a", "b");
  EXPECT_EQ(call(target->instanceMethod("a")), 1);
}

TEST(ImpOfCallingMethod, IsTheCallerItself) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"ask", asksInBase}, {"other", asksFromElsewhere}});
  Class* leaf = registry.add("Leaf", base, {{"ask", asksInLeaf}});
  const Thing thing(leaf);
  int mark = 0;
  EXPECT_EQ(asksInLeaf(thing, mark), Implementation(asksInLeaf));
  EXPECT_EQ(asksInBase(thing, mark), Implementation(asksInBase));
  EXPECT_EQ(mark, 2111);
}

TEST(ImpOfCallingMethod, IsEmptyWithoutTheSelectorOrAClass) {
  ClassRegistry registry;
  const Thing thing(registry.add("Base", nullptr, {{"ask", asksInBase}}));
  int mark = 0;
  EXPECT_FALSE(asksFromElsewhere(thing, mark));
  EXPECT_FALSE(asksInBase(Thing(nullptr), mark));
}

TEST(ImpOfCallingMethod, IsEmptyIfEveryEntryLiesAboveTheCaller) {
  ClassRegistry registry;
  const Thing thing(registry.add("Base", nullptr, {{"ask", at(UINTPTR_MAX - 16)}}));
  int mark = 0;
  EXPECT_FALSE(asksInBase(thing, mark));
}

TEST(ImpOfCallingMethod, IsFoundByACallThatIsTheLastOfItsCaller) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"ask", lookUpCaller}, {"ask", callsTheCaller}});
  int mark = 0;
  EXPECT_EQ(callsTheCaller(Thing(base), mark), Implementation(lookUpCaller));
  EXPECT_EQ(mark, 1);
}

TEST(OriginalImplementation, IsEmptyWithoutAnotherMethodOfTheSelector) {
  ClassRegistry registry;
  const Thing thing(registry.add("Base", nullptr, {{"ask", at(lookUpCode() - 16)}}));
  EXPECT_FALSE(lookUp(thing, "ask"));
  EXPECT_FALSE(lookUp(thing, "missing"));
  EXPECT_FALSE(lookUp(Thing(nullptr), "ask"));
}

TEST(OriginalImplementation, IsTheOneThatACategoryReplaced) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"ask", one}, {"rest", two}});
  base->addCategory({{"rest", three}, {"ask", at(lookUpCode() - 16)}});
  EXPECT_EQ(call(lookUp(Thing(base), "ask")), 1);
}

TEST(OriginalImplementation, MayBeThatOfASuperclass) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"ask", two}});
  Class* leaf = registry.add("Leaf", base, {{"ask", at(lookUpCode() - 16)}});
  EXPECT_EQ(call(lookUp(Thing(leaf), "ask")), 2);
}

TEST(OriginalImplementation, AgreesWithAPlainRenderingOfTheRules) {
  std::mt19937 random(4);
  for (int round = 0; round < 2000; ++round) {
    ClassRegistry registry;
    std::vector<std::vector<std::uintptr_t>> lists;
    Class* last = nullptr;
    for (int depth = 0; depth < 3; ++depth) {
      std::vector<foundation::Method> methods;
      std::vector<std::uintptr_t> list;
      for (auto n = random() % 3; n > 0; --n) {
        const auto away = static_cast<std::intptr_t>(random() % 6) - 3;
        const std::uintptr_t address = lookUpCode() + static_cast<std::uintptr_t>(away * 4096);
        if (address == lookUpCode()) continue;
        list.push_back(address);
        methods.push_back({"ask", at(address)});
      }
      last = registry.add(std::to_string(depth), last, methods);
      lists.insert(lists.begin(), list);
    }
    EXPECT_EQ(lookUp(Thing(last), "ask").address(), slowOriginal(lists, lookUpCode() + 1));
  }
}

TEST(OriginalImplementation, ACategoryCallsTheMethodThatItReplaced) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"greeting", greetingOfTheClass}});
  base->addCategory({{"greeting", greetingOfTheCategory}});
  const Thing thing(base);
  EXPECT_EQ(base->instanceMethod("greeting").as<Greeting>()(thing), "well, hello");
}

TEST(OriginalImplementation, CategoriesReplaceEachOtherInEitherOrder) {
  for (const bool isReversed : {false, true}) {
    ClassRegistry registry;
    Class* base = registry.add("Base", nullptr, {{"greeting", greetingOfTheClass}});
    base->addCategory({{"greeting", isReversed ? greetingOfALaterCategory : greetingOfTheCategory}});
    base->addCategory({{"greeting", isReversed ? greetingOfTheCategory : greetingOfALaterCategory}});
    EXPECT_EQ(base->instanceMethod("greeting").as<Greeting>()(Thing(base)),
              isReversed ? "well, oh hello" : "oh well, hello");
  }
}

TEST(OriginalImplementation, ACategoryOfASubclassCallsTheMethodOfTheSuperclass) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"greeting", greetingOfTheClass}});
  Class* leaf = registry.add("Leaf", base, {});
  leaf->addCategory({{"greeting", greetingOfTheCategory}});
  EXPECT_EQ(leaf->instanceMethod("greeting").as<Greeting>()(Thing(leaf)), "well, hello");
}

TEST(OriginalImplementation, AMethodThatNoCategoryReplacedHasNone) {
  ClassRegistry registry;
  Class* base = registry.add("Base", nullptr, {{"greeting", greetingOfTheCategory}});
  EXPECT_EQ(base->instanceMethod("greeting").as<Greeting>()(Thing(base)), "nothing to replace");
}
