// A file that somebody exchanges for something else between the tool's look at it and its opening.
#include "privileged/tool/TreeCopy.h"

#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

class ExchangedFile : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    if (!isTracingPossible()) GTEST_SKIP() << "calls cannot be traced here";
    write(source / "file", "mine");
    write(source / "other", "another file's");
  }
  // One job during which `source`/file is `other` while it is opened, and only then.
  Answer exchangedFor(const fs::path& other, const std::string& command) {
    bool isExchanged = false;
    const auto exchange = [&] {
      isExchanged = ::renameat2(AT_FDCWD, (source / "file").c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
    };
    const Meddler meddler{.meddle = exchange, .undo = exchange, .opening = "file"};
    const auto bytes = bytesOf(
        {{protocol::commandKey, command}, {protocol::sourcePathKey, source}, {protocol::destinationPathKey, destination}});
    const auto traced = runWithFault({toolProgram}, bytes, environment, {}, &meddler);
    EXPECT_TRUE(isExchanged);
    EXPECT_EQ(read(source / "file"), "mine");
    return traced.answer;
  }

  fs::path source = folder / "source/App.app";
  fs::path destination = folder / "destination/App.app";
};

TEST_F(ExchangedFile, IsNotCopiedFromWhereALinkLeads) {
  fs::create_directory(destination.parent_path());
  // Inside the source, because the tool's confinement keeps it from everything else.
  fs::create_symlink(source / "other", folder / "link");
  expectRefusal(exchangedFor(folder / "link", protocol::copyFileCommand),
                std::string("cannot open file: ") + std::strerror(ELOOP));
  EXPECT_FALSE(isThere(destination));
}

TEST_F(ExchangedFile, IsNotCopiedFromAPipe) {
  fs::create_directory(destination.parent_path());
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  expectRefusal(exchangedFor(folder / "pipe", protocol::copyFileCommand), "not a file: file");
  EXPECT_FALSE(isThere(destination));
}

}  // namespace
}  // namespace tests::tool
