#include "foundation/runtime/ClassRegistry.h"

#include <gtest/gtest.h>

#include <thread>

using namespace foundation;

namespace {

int first() { return 1; }
int second() { return 2; }
int third() { return 3; }
double otherSignature(int value) { return value; }

std::vector<std::string> namesOf(const std::vector<Class*>& classes) {
  std::vector<std::string> names;
  for (const auto* one : classes) names.push_back(one->name());
  return names;
}

int call(Implementation implementation) { return implementation.as<int()>()(); }

}  // namespace

TEST(ClassRegistry, ClassesAreListedInTheOrderOfRegistration) {
  ClassRegistry registry;
  registry.add("Zebra", nullptr, {});
  registry.add("Ant", nullptr, {});
  registry.add("Mouse", nullptr, {});
  EXPECT_EQ(namesOf(registry.classes()), (std::vector<std::string>{"Zebra", "Ant", "Mouse"}));
}

TEST(ClassRegistry, AClassIsFoundByName) {
  ClassRegistry registry;
  Class* ant = registry.add("Ant", nullptr, {});
  EXPECT_EQ(registry.classNamed("Ant"), ant);
  EXPECT_EQ(registry.classNamed("Bee"), nullptr);
}

TEST(ClassRegistry, ANameIsTakenOnce) {
  ClassRegistry registry;
  Class* ant = registry.add("Ant", nullptr, {{"work", first}});
  EXPECT_EQ(registry.add("Ant", nullptr, {{"work", second}}), nullptr);
  EXPECT_EQ(registry.classes(), std::vector<Class*>{ant});
  EXPECT_EQ(call(ant->instanceMethod("work")), 1);
}

TEST(ClassRegistry, TheProcessHasOneSharedRegistry) { EXPECT_EQ(&ClassRegistry::shared(), &ClassRegistry::shared()); }

TEST(ClassRegistry, AMethodOfTheNearestClassIsFound) {
  ClassRegistry registry;
  Class* root = registry.add("Root", nullptr, {{"one", first}, {"two", first}});
  Class* middle = registry.add("Middle", root, {{"two", second}});
  Class* leaf = registry.add("Leaf", middle, {});
  EXPECT_EQ(leaf->superclass(), middle);
  EXPECT_EQ(call(leaf->instanceMethod("one")), 1);
  EXPECT_EQ(call(leaf->instanceMethod("two")), 2);
  EXPECT_FALSE(leaf->instanceMethod("three"));
  EXPECT_FALSE(root->instanceMethod("Two"));
}

TEST(ClassRegistry, MethodsOfACategoryComeBeforeTheClassesOwn) {
  ClassRegistry registry;
  Class* one = registry.add("One", nullptr, {{"work", first}});
  one->addCategory({{"work", second}, {"rest", second}});
  one->addCategory({{"work", third}});
  std::vector<std::pair<std::string, int>> list;
  for (const auto& method : one->methodList()) list.emplace_back(method.selector, call(method.implementation));
  EXPECT_EQ(list, (std::vector<std::pair<std::string, int>>{{"work", 3}, {"work", 2}, {"rest", 2}, {"work", 1}}));
  EXPECT_EQ(call(one->instanceMethod("work")), 3);
}

TEST(ClassRegistry, AddingAMethodThatTheClassItselfHasDoesNothing) {
  ClassRegistry registry;
  Class* root = registry.add("Root", nullptr, {{"work", first}});
  Class* leaf = registry.add("Leaf", root, {});
  EXPECT_FALSE(root->addMethod("work", second));
  EXPECT_EQ(call(root->instanceMethod("work")), 1);
  EXPECT_TRUE(leaf->addMethod("work", second));
  EXPECT_EQ(call(leaf->instanceMethod("work")), 2);
  EXPECT_EQ(call(root->instanceMethod("work")), 1);
}

TEST(ClassRegistry, ExchangeTouchesOnlyMethodsOfTheClassItself) {
  ClassRegistry registry;
  Class* root = registry.add("Root", nullptr, {{"one", first}, {"two", second}});
  Class* leaf = registry.add("Leaf", root, {{"one", third}});
  EXPECT_FALSE(leaf->exchangeImplementations("one", "two"));
  EXPECT_EQ(call(leaf->instanceMethod("one")), 3);
  EXPECT_TRUE(root->exchangeImplementations("one", "two"));
  EXPECT_EQ(call(root->instanceMethod("one")), 2);
  EXPECT_EQ(call(root->instanceMethod("two")), 1);
}

TEST(ClassRegistry, AnImplementationIsGivenOnlyForItsOwnSignature) {
  const Implementation implementation(otherSignature);
  EXPECT_EQ(implementation.as<int()>(), nullptr);
  ASSERT_NE(implementation.as<double(int)>(), nullptr);
  EXPECT_EQ(implementation.as<double(int)>()(4), 4.0);
  EXPECT_EQ(Implementation().as<int()>(), nullptr);
}

TEST(ClassRegistry, TheSignatureGoesWithAnExchangedImplementation) {
  ClassRegistry registry;
  Class* one = registry.add("One", nullptr, {{"plain", first}, {"other", otherSignature}});
  one->exchangeImplementations("plain", "other");
  EXPECT_EQ(one->instanceMethod("plain").as<int()>(), nullptr);
  EXPECT_EQ(call(one->instanceMethod("other")), 1);
}

TEST(ClassRegistry, ClassOperationsAreInheritedAndApartFromMethods) {
  ClassRegistry registry;
  Class* root = registry.add("Root", nullptr, {{"work", first}}, {{"make", second}, {"count", second}});
  Class* leaf = registry.add("Leaf", root, {}, {{"count", third}});
  EXPECT_EQ(call(leaf->classOperation("make")), 2);
  EXPECT_EQ(call(leaf->classOperation("count")), 3);
  EXPECT_EQ(call(root->classOperation("count")), 2);
  EXPECT_FALSE(root->classOperation("work"));
  EXPECT_FALSE(root->instanceMethod("make"));
}

TEST(ClassRegistry, ManyThreadsMayRegisterAndLookUp) {
  ClassRegistry registry;
  Class* root = registry.add("Root", nullptr, {{"work", first}});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, i] {
      for (int n = 0; n < 50; ++n) {
        const std::string name = "C" + std::to_string(i) + "." + std::to_string(n);
        Class* added = registry.add(name, root, {});
        added->addMethod("rest", second);
        root->addCategory({{"own" + name, third}});
        if (registry.classNamed(name) != added || call(added->instanceMethod("work")) != 1) std::abort();
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(registry.classes().size(), 201U);
  EXPECT_EQ(root->methodList().size(), 201U);
}
