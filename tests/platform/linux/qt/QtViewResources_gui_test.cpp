#include "platform/linux/qt/QtViewResources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <fstream>

#include "foundation/views/ViewController.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/QtImage.h"

using namespace foundation;
using namespace platform;
using platform::Linux::QtImage;
using platform::Linux::QtViewResources;

namespace {

class Face : public View {
 public:
  bool setFlagForKey(bool value, std::string_view key) override {
    if (key != "hasBloom") return false;
    hasBloom = value;
    return true;
  }
  bool hasBloom = false;
};

struct Resources : testing::Test {
  std::string write(const std::string& name, const std::string& text) {
    const auto path = folder.filePath(QString::fromStdString(name)).toStdString();
    std::ofstream(path) << text;
    return path;
  }
  void addImage(const std::string& name, int width, int height) {
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(Qt::red);
    const auto path = folder.filePath(QString::fromStdString(name));
    ASSERT_TRUE(image.save(path));
    bundle.resources["artwork/" + name] = path.toStdString();
  }
  std::shared_ptr<View> load(const std::string& document) {
    bundle.resources["Settings.ui"] = write("Settings.ui", document);
    return resources.loadNib("Settings", owner, cause);
  }

  QTemporaryDir folder;
  fake::FakeBundle bundle;
  std::vector<ViewClass> classes{{"Face", [] { return std::make_shared<Face>(); }},
                                 {"View", [] { return std::make_shared<View>(); }}};
  QtViewResources resources{bundle, classes};
  ViewController owner;
  std::string cause;
};

TEST_F(Resources, AnImageHasItsSizeInPointsAndAVersionForEachScale) {
  addImage("dot.png", 10, 6);
  addImage("dot@2x.png", 20, 12);
  const auto image = std::dynamic_pointer_cast<const QtImage>(resources.imageNamed("dot"));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), (Size{10, 6}));
  EXPECT_EQ(image->versionForScale(1).width(), 10);
  EXPECT_EQ(image->versionForScale(1.5).width(), 20);
  EXPECT_EQ(image->versionForScale(2).width(), 20);
  EXPECT_EQ(image->versionForScale(3).width(), 20);
}

TEST_F(Resources, AnImageOfALargeScaleAloneStillHasItsSizeInPoints) {
  addImage("dot@2x.png", 20, 12);
  EXPECT_EQ(resources.imageNamed("dot")->size(), (Size{10, 6}));
}

TEST_F(Resources, AnImageIsLoadedOnce) {
  addImage("dot.png", 10, 6);
  EXPECT_EQ(resources.imageNamed("dot"), resources.imageNamed("dot"));
}

TEST_F(Resources, AnImageThatIsMissingOrNoPictureIsNone) {
  EXPECT_EQ(resources.imageNamed("none"), nullptr);
  bundle.resources["artwork/broken.png"] = write("broken.png", "no picture");
  EXPECT_EQ(resources.imageNamed("broken"), nullptr);
}

TEST_F(Resources, ANibGivesItsViewsWithGeometryAndFlags) {
  const auto view = load(R"(<?xml version="1.0"?><ui version="4.0"><class>Settings</class>
    <widget class="Face" name="settings">
     <property name="geometry"><rect><x>7</x><y>9</y><width>400</width><height>300</height></rect></property>
     <property name="hasBloom" stdset="0"><bool>true</bool></property>
     <widget class="View" name="inner">
      <property name="geometry"><rect><x>10</x><y>20</y><width>100</width><height>50</height></rect></property>
      <property name="autoresizingMask" stdset="0"><number>18</number></property>
     </widget>
     <widget class="QLabel" name="text"><property name="text"><string>passed over</string></property></widget>
    </widget></ui>)");
  ASSERT_NE(view, nullptr) << cause;
  EXPECT_EQ(view->frame(), (Rect{{0, 0}, {400, 300}}));
  EXPECT_TRUE(dynamic_cast<Face&>(*view).hasBloom);
  ASSERT_EQ(view->subviews().size(), 1U);
  EXPECT_EQ(view->subviews().front()->frame(), (Rect{{10, 230}, {100, 50}}));
  EXPECT_EQ(view->subviews().front()->autoresizingMask(), ViewWidthSizable | ViewHeightSizable);
}

TEST_F(Resources, AMissingNibSaysSo) {
  EXPECT_EQ(resources.loadNib("None", owner, cause), nullptr);
  EXPECT_THAT(cause, testing::HasSubstr("no such interface description"));
}

TEST_F(Resources, ANibWhoseTopLevelIsNoViewIsRefused) {
  EXPECT_EQ(load(R"(<ui version="4.0"><widget class="QWidget" name="window"/></ui>)"), nullptr);
  EXPECT_EQ(cause, "its top-level widget is no view");
}

TEST_F(Resources, AMalformedNibIsRefused) {
  EXPECT_EQ(load(R"(<ui version="4.0"><widget class="View" name="x">)"), nullptr);
  EXPECT_NE(cause, "");
}

}  // namespace
