#include "tests/privileged/tool/Fidelity.h"
#include "tests/privileged/tool/FidelityOfLevels.h"

namespace tests::tool {
namespace {

using FilesAndFolders = std::vector<std::string>;

// One row of the table in docs/fidelity.md: what is made in the tree before it goes, and looked for afterwards.
struct Row {
  std::string name;
  std::function<void(const fs::path&)> make;
  std::function<void(const fs::path&, const Way&)> expect;
  // The last column of the page.
  std::string restoredAcross = "kept";
};

void expectTimes(const fs::path& path, long seconds, long nanoseconds) {
  const auto status = statusOf(path);
  EXPECT_EQ(status.st_mtim.tv_sec, seconds) << path;
  EXPECT_EQ(status.st_mtim.tv_nsec, nanoseconds) << path;
}

mode_t modeOf(const fs::path& path) { return statusOf(path).st_mode & ALLPERMS; }

const std::vector<Row>& rows() {
  static const std::vector<Row> all{
      {"contents", [](const fs::path& app) { write(app / "file", std::string(300000, 'x') + "end"); },
       [](const fs::path& app, const Way&) { EXPECT_TRUE(read(app / "file") == std::string(300000, 'x') + "end"); }},
      {"permission bits",
       [](const fs::path& app) {
         for (const mode_t mode : {0400U, 0600U, 0644U, 0755U, 0777U}) {
           write(app / std::to_string(mode), "");
           EXPECT_EQ(::chmod((app / std::to_string(mode)).c_str(), mode), 0);
         }
         fs::create_directory(app / "folder");
         EXPECT_EQ(::chmod((app / "folder").c_str(), 01750), 0);
       },
       [](const fs::path& app, const Way&) {
         for (const mode_t mode : {0400U, 0600U, 0644U, 0755U, 0777U}) EXPECT_EQ(modeOf(app / std::to_string(mode)), mode);
         EXPECT_EQ(modeOf(app / "folder"), 01750U);
       }},
      {"set-user-id and set-group-id bits",
       [](const fs::path& app) {
         write(app / "program", "");
         fs::create_directory(app / "folder");
         EXPECT_EQ(::chmod((app / "program").c_str(), 06755), 0);
         EXPECT_EQ(::chmod((app / "folder").c_str(), 02755), 0);
       },
       [](const fs::path& app, const Way& way) {
         const bool isRenamed = way.command == "move" && !way.across;
         EXPECT_EQ(modeOf(app / "program"), isRenamed ? 06755U : 0755U);
         EXPECT_EQ(modeOf(app / "folder"), isRenamed ? 02755U : 0755U);
       },
       "none are left"},
      {"modification times to the nanosecond",
       [](const fs::path& app) {
         write(app / "folder/file", "");
         fs::create_symlink("file", app / "folder/link");
         setTimes(app / "folder/file", 1000000000, 123456789);
         setTimes(app / "folder/link", 1000000001, 987654321);
         setTimes(app / "folder", 1, 999999999);
         setTimes(app, 2, 1);
       },
       [](const fs::path& app, const Way&) {
         expectTimes(app / "folder/file", 1000000000, 123456789);
         expectTimes(app / "folder/link", 1000000001, 987654321);
         expectTimes(app / "folder", 1, 999999999);
         expectTimes(app, 2, 1);
       }},
      {"user extended attributes",
       [](const fs::path& app) {
         write(app / "file", "");
         setAttribute(app / "file", "user.text", "a value");
         setAttribute(app / "file", "user.empty", "");
         setAttribute(app, "user.of-folder", std::string("\0\xff", 2));
       },
       [](const fs::path& app, const Way&) {
         EXPECT_EQ(attributeOf(app / "file", "user.text"), "a value");
         EXPECT_EQ(attributeOf(app / "file", "user.empty"), "");
         EXPECT_EQ(attributeOf(app, "user.of-folder"), std::string("\0\xff", 2));
       }},
      {"POSIX access lists",
       [](const fs::path& app) {
         write(app / "file", "");
         fs::create_directory(app / "folder");
         setAttribute(app / "file", "system.posix_acl_access", accessListFor(4003));
         setAttribute(app / "folder", "system.posix_acl_default", accessListFor(4004));
       },
       [](const fs::path& app, const Way&) {
         EXPECT_EQ(attributeOf(app / "file", "system.posix_acl_access"), accessListFor(4003));
         EXPECT_EQ(attributeOf(app / "folder", "system.posix_acl_default"), accessListFor(4004));
         EXPECT_EQ(modeOf(app / "file"), 0640U);
       }},
      {"symbolic links, dangling and absolute too",
       [](const fs::path& app) {
         write(app / "file", "");
         fs::create_symlink("file", app / "relative");
         fs::create_symlink("/etc/passwd", app / "absolute");
         fs::create_symlink("nowhere/at all", app / "dangling");
         fs::create_symlink("../../..", app / "upwards");
         fs::create_symlink("loop", app / "loop");
       },
       [](const fs::path& app, const Way&) {
         EXPECT_EQ(fs::read_symlink(app / "relative"), "file");
         EXPECT_EQ(fs::read_symlink(app / "absolute"), "/etc/passwd");
         EXPECT_EQ(fs::read_symlink(app / "dangling"), "nowhere/at all");
         EXPECT_EQ(fs::read_symlink(app / "upwards"), "../../..");
         EXPECT_EQ(fs::read_symlink(app / "loop"), "loop");
       }},
      {"hard links inside the tree",
       [](const fs::path& app) {
         write(app / "one", "linked");
         fs::create_directory(app / "folder");
         fs::create_hard_link(app / "one", app / "folder/two");
         fs::create_hard_link(app / "one", app / "three");
         write(app / "alone", "linked");
       },
       [](const fs::path& app, const Way& way) {
         const bool isLost = way.isCopiedByRestorer();
         EXPECT_EQ(statusOf(app / "one").st_nlink, isLost ? 1U : 3U);
         EXPECT_EQ(statusOf(app / "folder/two").st_ino == statusOf(app / "one").st_ino, !isLost);
         EXPECT_EQ(statusOf(app / "three").st_ino == statusOf(app / "one").st_ino, !isLost);
         EXPECT_NE(statusOf(app / "alone").st_ino, statusOf(app / "one").st_ino);
         EXPECT_EQ(read(app / "folder/two"), "linked");
         EXPECT_EQ(read(app / "three"), "linked");
       },
       "**lost**: files of their own"},
      {"sparse files",
       [](const fs::path& app) {
         write(app / "sparse", "begin");
         fs::resize_file(app / "sparse", 100 << 20);
         const int file = ::open((app / "sparse").c_str(), O_WRONLY | O_CLOEXEC);
         EXPECT_EQ(::pwrite(file, "middle", 6, 50 << 20), 6);
         ::close(file);
         write(app / "hole", "");
         fs::resize_file(app / "hole", 1 << 20);
       },
       [](const fs::path& app, const Way& way) {
         const bool isLost = way.isCopiedByRestorer();
         EXPECT_EQ(statusOf(app / "sparse").st_size, 100 << 20);
         EXPECT_EQ(statusOf(app / "sparse").st_blocks < 2048, !isLost) << "are the holes filled?";
         EXPECT_EQ(statusOf(app / "hole").st_size, 1 << 20);
         EXPECT_EQ(statusOf(app / "hole").st_blocks == 0, !isLost);
         std::ifstream file(app / "sparse", std::ios::binary);
         std::string text(11, '\0');
         file.read(text.data(), 5).seekg(50 << 20).read(text.data() + 5, 6);
         EXPECT_EQ(text, "beginmiddle");
       },
       "**lost**: the holes are filled"},
      {"empty files and folders",
       [](const fs::path& app) {
         fs::create_directories(app / "folder/in folder");
         write(app / "file", "");
       },
       [](const fs::path& app, const Way&) {
         EXPECT_TRUE(fs::is_directory(app / "folder/in folder"));
         EXPECT_TRUE(fs::is_empty(app / "folder/in folder"));
         EXPECT_TRUE(fs::is_empty(app / "file"));
       }},
      {"names that are not UTF-8",
       [](const fs::path& app) {
         write(app / "\xff\xfe", "bytes");
         fs::create_directory(app / "\xc3\x28");
         write(app / "a\nb\tc\\ \x01", "control");
         write(app / std::string(255, 'n'), "long");
       },
       [](const fs::path& app, const Way&) {
         EXPECT_EQ(read(app / "\xff\xfe"), "bytes");
         EXPECT_TRUE(fs::is_directory(app / "\xc3\x28"));
         EXPECT_EQ(read(app / "a\nb\tc\\ \x01"), "control");
         EXPECT_EQ(read(app / std::string(255, 'n')), "long");
       }},
  };
  return all;
}

using RowAndWay = std::tuple<std::size_t, Way>;

class FidelityRow : public Fidelity, public ::testing::WithParamInterface<RowAndWay> {};

TEST_P(FidelityRow, Holds) {
  const auto& [number, way] = GetParam();
  const auto& row = rows()[number];
  if (const auto missing = missingFor(way); !missing.empty()) GTEST_SKIP() << missing;
  fs::create_directories(source(way));
  row.make(source(way));
  row.expect(take(way), way);
}

std::string nameOf(const ::testing::TestParamInfo<RowAndWay>& info) {
  const auto& [number, way] = info.param;
  return lettersOf(rows()[number].name + " " + way.name());
}
INSTANTIATE_TEST_SUITE_P(Table, FidelityRow,
                         ::testing::Combine(::testing::Range(std::size_t{0}, rows().size()), ::testing::ValuesIn(allWays)),
                         nameOf);

class FidelityOf : public Fidelity, public ::testing::WithParamInterface<Way> {};

TEST_P(FidelityOf, OwnersAndGroups) {
  if (const auto missing = missingFor(GetParam()); !missing.empty()) GTEST_SKIP() << missing;
  makeRichBundle(source(GetParam()), "1");
  giveTree(source(GetParam()), sourceOwner);
  const auto wanted = treeOf(source(GetParam()), ownerAfter(GetParam()));
  EXPECT_EQ(treeOf(take(GetParam())), wanted);
}

INSTANTIATE_TEST_SUITE_P(Table, FidelityOf, ::testing::ValuesIn(allWays), wayOf);

// The kernel checks each folder above an entry, so the time grows with the square of the depth: the other ways are slow
// tests.
INSTANTIATE_TEST_SUITE_P(Table, FidelityOfLevels, ::testing::Values(Way{"replace", true}, Way{"trash", true}), wayOf);

// By every way that keeps the holes.
class FidelityOfHoles : public Fidelity, public ::testing::WithParamInterface<Way> {
 public:
  static std::vector<Way> ways() {
    auto all = allWays;
    std::erase_if(all, [](const auto& way) { return way.isCopiedByRestorer(); });
    return all;
  }
};

TEST_P(FidelityOfHoles, ASparseFileOfFourGigabytes) {
  if (const auto missing = missingFor(GetParam()); !missing.empty()) GTEST_SKIP() << missing;
  const auto file = source(GetParam()) / "large";
  constexpr off_t fourGigabytes = off_t{4} << 30;
  write(file, "begin");
  fs::resize_file(file, fourGigabytes + 3);
  const int opened = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(::pwrite(opened, "end", 3, fourGigabytes), 3);
  ::close(opened);
  const auto copy = take(GetParam()) / "large";
  EXPECT_EQ(statusOf(copy).st_size, fourGigabytes + 3);
  EXPECT_LT(statusOf(copy).st_blocks, 2048);
  std::array<char, 3> end{};
  const int again = ::open(copy.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(::pread(again, end.data(), 3, fourGigabytes), 3);
  EXPECT_EQ(std::string(end.data(), 3), "end");
  ::close(again);
}

INSTANTIATE_TEST_SUITE_P(Table, FidelityOfHoles, ::testing::ValuesIn(FidelityOfHoles::ways()), wayOf);

// Tests how the trash program restores an item's own name and an item that is a link, renamed and copied.
class FidelityOfItem : public Fidelity, public ::testing::WithParamInterface<bool> {
 protected:
  [[nodiscard]] fs::path folderOf() const { return source({"trash", GetParam()}).parent_path(); }
};

TEST_P(FidelityOfItem, ANameThatIsPercentEncodedComesBack) {
  if (const auto missing = missingFor({"trash", GetParam(), "trash-restore"}); !missing.empty()) GTEST_SKIP() << missing;
  const std::string name = "a b%25\n\u00e9\x01.app";
  write(folderOf() / name / "file", "contents");
  trashWhole(folderOf() / name);
  EXPECT_THAT(read(infoOf(name)), ::testing::HasSubstr("\nPath=" + folderOf().string() + "/a%20b%2525%0A%C3%A9%01.app\n"));
  EXPECT_EQ(restoreByTrashProgram(folderOf()).status, 0);
  EXPECT_EQ(read(folderOf() / name / "file"), "contents");
  EXPECT_FALSE(isThere(trashed(name)));
}

TEST_P(FidelityOfItem, ALinkByItselfGetsANewTimeWhenTheTrashProgramCopiesIt) {
  if (const auto missing = missingFor({"trash", GetParam(), "trash-restore"}); !missing.empty()) GTEST_SKIP() << missing;
  const auto link = folderOf() / "link";
  fs::create_directories(folderOf());
  for (const bool byTrashProgram : {true, false}) {
    fs::create_symlink("nowhere", link);
    setTimes(link, 1000, 123456789);
    trashWhole(link);
    expectTimes(trashed("link"), 1000, 123456789);
    EXPECT_EQ((byTrashProgram ? restoreByTrashProgram(link) : restoreByMv(link)).status, 0);
    EXPECT_EQ(fs::read_symlink(link), "nowhere");
    EXPECT_EQ(statusOf(link).st_mtim.tv_sec == 1000, !(GetParam() && byTrashProgram));
    fs::remove(link);
  }
}

INSTANTIATE_TEST_SUITE_P(Trashed, FidelityOfItem, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& across) { return across.param ? "Across" : "Renamed"; });

// The page and the tests name the same rows.
TEST(FidelityPage, HasEveryRowThatIsTested) {
  const auto page = read(KELTO_SOURCE_DIR "/docs/fidelity.md");
  std::map<std::string, std::string> last{{"owner and group", "kept"},
                                          {"2,000 levels", "**no**: it gives up, and the item stays whole in the Trash"},
                                          {"100,000 small files", "yes"},
                                          {"a sparse file of 4 GB", "yes, its holes are filled"}};
  for (const auto& row : rows()) last[row.name] = row.restoredAcross;
  for (const auto& [name, restored] : last) {
    const auto begin = page.find("\n| " + name + " |");
    ASSERT_NE(begin, std::string::npos) << name;
    EXPECT_TRUE(page.substr(begin, page.find('\n', begin + 1) - begin).ends_with(" | " + restored + " |")) << name;
  }
}

}  // namespace
}  // namespace tests::tool
