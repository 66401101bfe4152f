#include "foundation/text/FileURL.h"

#include <gtest/gtest.h>

using namespace foundation;

TEST(FileURL, NamesAPathWithItsEscapesRemoved) {
  EXPECT_EQ(FileURL::path("file:///a%20b/%C3%A9"), "/a b/\xC3\xA9");
  EXPECT_EQ(FileURL::path("FILE://localhost/a"), "/a");
  EXPECT_EQ(FileURL::path("file:/a"), "/a");
  EXPECT_EQ(FileURL::path("file:///a?query#fragment"), "/a");
}

TEST(FileURL, OneWithAHostIsAFileURL) {
  EXPECT_EQ(FileURL::path("file://server/a"), "/a");
  EXPECT_EQ(FileURL::path("file://localhostess/a%20b"), "/a b");
  EXPECT_EQ(FileURL::path("file://server/"), "/");
}

TEST(FileURL, GivesNoPathForAnotherSchemeOrAMalformedPath) {
  for (const char* url : {"", "/a", "http:///a", "file:a", "file:", "file://", "file://server", "file:///%", "file:///%4",
                          "file:///%zz", "file:///a%00b", "file://server?/a", "file://server#/a"})
    EXPECT_EQ(FileURL::path(url), std::nullopt) << url;
}

TEST(FileURL, APathComesBackFromItsUrl) {
  const std::string path = "/a b/\xC3\xA9%?#\xFF[]\n";
  EXPECT_EQ(FileURL::fromPath(path), "file:///a%20b/%C3%A9%25%3F%23%FF%5B%5D%0A");
  EXPECT_EQ(FileURL::path(FileURL::fromPath(path)), path);
}
