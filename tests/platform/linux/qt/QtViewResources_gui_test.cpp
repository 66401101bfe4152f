#include "platform/linux/qt/QtViewResources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <fstream>

#include "foundation/views/ViewController.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/QtImage.h"
#include "platform/linux/qt/ViewHostWidget.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using platform::Linux::QtImage;
using platform::Linux::QtViewResources;
using platform::Linux::ViewHostWidget;

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

// Records its outlets.
class Owner : public ViewController {
 public:
  using ViewController::ViewController;
  void connectOutlet(std::string_view name, const std::shared_ptr<InterfaceElement>& element) override {
    outlets[std::string(name)] = element;
  }
  template <class Element>
  std::shared_ptr<Element> outlet(const std::string& name) {
    return std::dynamic_pointer_cast<Element>(outlets[name].lock());
  }
  std::map<std::string, std::weak_ptr<InterfaceElement>> outlets;
};

struct QtViewResourcesTest : testing::Test {
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
  fake::FakePlatform fakes;
  fake::FakeBundle bundle;
  int terminations = 0;
  QtViewResources resources{
      bundle,
      {fakes.runLoop,
       {{"Face", [] { return std::make_shared<Face>(); }}, {"View", [] { return std::make_shared<View>(); }}}},
      [this] { ++terminations; }};
  Owner owner{fakes.platform.views, "Settings"};
  std::string cause;
};

TEST_F(QtViewResourcesTest, AnImageHasItsSizeInPointsAndAVersionForEachScale) {
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

TEST_F(QtViewResourcesTest, AnImageOfALargeScaleOnlyHasItsSizeInPoints) {
  addImage("dot@2x.png", 20, 12);
  EXPECT_EQ(resources.imageNamed("dot")->size(), (Size{10, 6}));
}

TEST_F(QtViewResourcesTest, AnImageIsLoadedOnce) {
  addImage("dot.png", 10, 6);
  EXPECT_EQ(resources.imageNamed("dot"), resources.imageNamed("dot"));
}

TEST_F(QtViewResourcesTest, AMissingOrBrokenImageIsNotFound) {
  EXPECT_EQ(resources.imageNamed("none"), nullptr);
  bundle.resources["artwork/broken.png"] = write("broken.png", "no picture");
  EXPECT_EQ(resources.imageNamed("broken"), nullptr);
}

TEST_F(QtViewResourcesTest, ANibGivesItsViewsWithGeometryAndFlags) {
  const auto view = load(R"(<?xml version="1.0"?><ui version="4.0"><class>Settings</class>
    <widget class="Face" name="settings">
     <property name="geometry"><rect><x>7</x><y>9</y><width>400</width><height>300</height></rect></property>
     <property name="hasBloom" stdset="0"><bool>true</bool></property>
     <widget class="View" name="inner">
      <property name="geometry"><rect><x>10</x><y>20</y><width>100</width><height>50</height></rect></property>
      <property name="autoresizingMask" stdset="0"><number>18</number></property>
     </widget>
    </widget></ui>)");
  ASSERT_NE(view, nullptr) << cause;
  EXPECT_EQ(view->frame(), (Rect{{0, 0}, {400, 300}}));
  EXPECT_TRUE(dynamic_cast<Face&>(*view).hasBloom);
  ASSERT_EQ(view->subviews().size(), 1U);
  EXPECT_EQ(view->subviews().front()->frame(), (Rect{{10, 230}, {100, 50}}));
  EXPECT_EQ(view->subviews().front()->autoresizingMask(), ViewWidthSizable | ViewHeightSizable);
}

TEST_F(QtViewResourcesTest, AWidgetThatTheNibHidesGivesAHiddenView) {
  const auto view = load(R"(<ui version="4.0"><widget class="View" name="settings">
    <widget class="View" name="inner"><property name="visible"><bool>false</bool></property></widget>
    <widget class="View" name="other"/></widget></ui>)");
  ASSERT_NE(view, nullptr) << cause;
  EXPECT_FALSE(view->isHidden());
  EXPECT_TRUE(view->subviews().at(0)->isHidden());
  EXPECT_FALSE(view->subviews().at(1)->isHidden());
}

// A label, a button and a view below each other, and a view beside the layout of its superview.
constexpr const char* controls = R"(<ui version="4.0"><widget class="View" name="settings">
  <property name="geometry"><rect><x>0</x><y>0</y><width>200</width><height>100</height></rect></property>
  <widget class="View" name="panel">
   <property name="geometry"><rect><x>20</x><y>10</y><width>160</width><height>80</height></rect></property>
   <property name="autoresizingMask" stdset="0"><number>2</number></property>
   <layout class="QVBoxLayout" name="rows">
    <property name="spacing"><number>0</number></property>
    <property name="leftMargin"><number>0</number></property>
    <property name="topMargin"><number>0</number></property>
    <property name="rightMargin"><number>0</number></property>
    <property name="bottomMargin"><number>0</number></property>
    <item><widget class="QLabel" name="text">
     <property name="minimumSize"><size><width>0</width><height>25</height></size></property>
     <property name="maximumSize"><size><width>999</width><height>25</height></size></property>
    </widget></item>
    <item><widget class="QPushButton" name="quit">
     <property name="minimumSize"><size><width>0</width><height>25</height></size></property>
     <property name="maximumSize"><size><width>999</width><height>25</height></size></property>
     <property name="action" stdset="0"><string>terminate:</string></property>
    </widget></item>
    <item><widget class="Face" name="face"/></item>
   </layout>
  </widget>
 </widget></ui>)";

TEST_F(QtViewResourcesTest, ControlsAndInnerViewsAreOutletsOfTheOwner) {
  const auto view = load(controls);
  ASSERT_NE(view, nullptr) << cause;
  EXPECT_NE(owner.outlet<TextField>("text"), nullptr);
  EXPECT_NE(owner.outlet<Button>("quit"), nullptr);
  EXPECT_EQ(owner.outlet<View>("panel"), view->subviews().front());
  EXPECT_EQ(owner.outlet<Face>("face"), view->subviews().front()->subviews().front());
  EXPECT_EQ(owner.outlets.size(), 4U);
}

TEST_F(QtViewResourcesTest, ALayoutPlacesTheViewsInIt) {
  const auto view = load(controls);
  ASSERT_NE(view, nullptr) << cause;
  EXPECT_EQ(owner.outlet<View>("panel")->frame(), (Rect{{20, 10}, {160, 80}}));
  EXPECT_EQ(owner.outlet<Face>("face")->frame(), (Rect{{0, 0}, {160, 30}}));
}

TEST_F(QtViewResourcesTest, OutletsGoWithTheView) {
  auto view = load(controls);
  view.reset();
  EXPECT_EQ(owner.outlet<TextField>("text"), nullptr);
  EXPECT_EQ(owner.outlet<View>("panel"), nullptr);
}

// A window whose content is a view tree, which a loaded view enters.
struct QtViewResourcesInWindowTest : QtViewResourcesTest {
  QtViewResourcesInWindowTest() {
    host->setGeometry(0, 0, 400, 300);
    window.resize(400, 300);
    view = load(controls);
    content->addSubview(view);
    view->setFrameOrigin({50, 60});
    window.show();
  }
  ~QtViewResourcesInWindowTest() override {
    view.reset();
    delete host;
  }

  [[nodiscard]] QLabel* label() const { return window.findChild<QLabel*>("text"); }
  bool comesTrue(const std::function<bool()>& condition) { return tests::spinUntil(condition, 5000); }
  bool isAt(QRect place) {
    return comesTrue([&] {
      const QLabel* text = label();
      return text != nullptr && text->isVisible() && QRect(text->mapTo(&window, QPoint()), text->size()) == place;
    });
  }

  QWidget window;
  std::shared_ptr<View> content = std::make_shared<View>();
  ViewHostWidget* host = new ViewHostWidget(content, fakes.runLoop, &window);
  std::shared_ptr<View> view;
};

TEST_F(QtViewResourcesInWindowTest, ControlsAppearOverTheirView) {
  EXPECT_TRUE(isAt({70, 150, 160, 25}));
  owner.outlet<TextField>("text")->setStringValue("Volume");
  EXPECT_EQ(label()->text(), "Volume");
}

TEST_F(QtViewResourcesInWindowTest, ControlsFollowAViewThatMovesAndResizes) {
  view->setFrame({{10, 20}, {240, 100}});
  EXPECT_TRUE(isAt({30, 190, 200, 25}));
  EXPECT_EQ(owner.outlet<Face>("face")->frame(), (Rect{{0, 0}, {200, 30}}));
}

TEST_F(QtViewResourcesInWindowTest, ControlsFollowASuperviewThatMovesOrIsHidden) {
  const auto between = std::make_shared<View>(Rect{{0, 0}, {300, 300}});
  content->addSubview(between);
  between->addSubview(view);
  between->setFrameOrigin({5, 5});
  EXPECT_TRUE(isAt({75, 145, 160, 25}));
  between->setHidden(true);
  EXPECT_TRUE(comesTrue([this] { return !label()->isVisible(); }));
}

TEST_F(QtViewResourcesInWindowTest, ControlsHideAndLeaveWithTheirView) {
  ASSERT_TRUE(isAt({70, 150, 160, 25}));
  view->setHidden(true);
  EXPECT_TRUE(comesTrue([this] { return !label()->isVisible(); }));
  view->setHidden(false);
  EXPECT_TRUE(isAt({70, 150, 160, 25}));
  view->removeFromSuperview();
  EXPECT_TRUE(comesTrue([this] { return label() == nullptr; }));
  content->addSubview(view);
  EXPECT_TRUE(isAt({70, 150, 160, 25}));
}

TEST_F(QtViewResourcesInWindowTest, AButtonWithTheActionTerminateTerminates) {
  ASSERT_TRUE(isAt({70, 150, 160, 25}));
  window.findChild<QPushButton*>("quit")->click();
  EXPECT_EQ(terminations, 1);
}

TEST_F(QtViewResourcesInWindowTest, ControlsSurviveTheWindowAsLongAsTheirView) {
  ASSERT_TRUE(isAt({70, 150, 160, 25}));
  delete std::exchange(host, nullptr);
  owner.outlet<TextField>("text")->setStringValue("still here");
  EXPECT_EQ(label(), nullptr);
  host = new ViewHostWidget(view, fakes.runLoop, &window);
  host->setGeometry(0, 0, 400, 300);
  host->show();
  EXPECT_TRUE(comesTrue([this] { return label() != nullptr && label()->isVisible(); }));
  EXPECT_EQ(label()->text(), "still here");
}

TEST_F(QtViewResourcesTest, AMissingNibIsReported) {
  EXPECT_EQ(resources.loadNib("None", owner, cause), nullptr);
  EXPECT_THAT(cause, testing::HasSubstr("no such interface description"));
}

TEST_F(QtViewResourcesTest, ANibWhoseTopLevelIsNotAViewIsRefused) {
  EXPECT_EQ(load(R"(<ui version="4.0"><widget class="QWidget" name="window"/></ui>)"), nullptr);
  EXPECT_EQ(cause, "its top-level widget is not a view");
}

TEST_F(QtViewResourcesTest, AMalformedNibIsRefused) {
  EXPECT_EQ(load(R"(<ui version="4.0"><widget class="View" name="x">)"), nullptr);
  EXPECT_NE(cause, "");
}

}  // namespace
