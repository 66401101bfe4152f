#include "platform/linux/qt/Language.h"

#include <QApplication>
#include <QLocale>

#include "tests/platform/linux/qt/QtTest.h"

using namespace platform::Linux;

namespace {

struct Language : testing::Test {
  ~Language() override { applyLanguage("en"); }
};

TEST_F(Language, TheLayoutRunsAsTheChosenLanguageDoes) {
  for (const char* mirrored : {"ar", "he", "fa", "ur"}) {
    applyLanguage(mirrored);
    EXPECT_EQ(QApplication::layoutDirection(), Qt::RightToLeft) << mirrored;
  }
  for (const char* ordinary : {"en", "zh-Hans", "sr"}) {
    applyLanguage(ordinary);
    EXPECT_EQ(QApplication::layoutDirection(), Qt::LeftToRight) << ordinary;
  }
}

TEST_F(Language, TextsFollowItsRules) {
  applyLanguage("zh-Hans");
  EXPECT_EQ(QLocale().language(), QLocale::Chinese);
  EXPECT_EQ(QLocale().script(), QLocale::SimplifiedHanScript);
}

TEST_F(Language, ChineseLettersHaveTheFormsOfTheirScript) {
  EXPECT_EQ(fontLanguage("zh-Hans"), "zh-cn");
  EXPECT_EQ(fontLanguage("zh-Hant"), "zh-tw");
  EXPECT_EQ(fontLanguage("zh-TW"), "zh-tw");
  EXPECT_EQ(fontLanguage("ja"), "ja");
  EXPECT_EQ(fontLanguage("pt-BR"), "pt");
}

}  // namespace
