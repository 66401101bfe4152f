#include "privileged/tool/DesktopEntry.h"

#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string least = "[Desktop Entry]\nType=Application\nName=Editor\nExec=Contents/Linux/Editor %U\n";

std::string installed(const std::string& text, const std::string& bundle = "/opt/Editor.app") {
  return DesktopEntry(text).installedFor(bundle);
}
std::string refusal(const std::string& text) {
  return refusalOf([&] { DesktopEntry{text}; });
}
std::string installedCommand(const std::string& command, const std::string& bundle = "/opt/Editor.app") {
  const auto text = installed("[Desktop Entry]\nType=Application\nName=E\nExec=" + command + "\n", bundle);
  return text.substr(text.find("Exec=") + 5);
}
std::string refusalOfCommand(const std::string& command) {
  return refusal("[Desktop Entry]\nType=Application\nName=E\nExec=" + command + "\n");
}

TEST(DesktopEntry, IsWrittenWithTheBundleAndItsPath) {
  EXPECT_EQ(installed("\n# ours\n" + least + "Icon = com.example.Editor\n"),
            "[Desktop Entry]\nX-Kelto-Bundle=/opt/Editor.app\nType=Application\nName=Editor\n"
            "Exec=/opt/Editor.app/Contents/Linux/Editor %U\nIcon=com.example.Editor\n");
}

// docs/integration.md shows it.
TEST(DesktopEntry, OfTheExampleIsAccepted) {
  const DesktopEntry entry(tests::readFile(KELTO_SOURCE_DIR "/sdk/examples/desktop/com.example.Editor.desktop"));
  EXPECT_THAT(entry.programs(), ElementsAre("Contents/Linux/Editor", "Contents/Linux/Editor"));
}

TEST(DesktopEntry, KeepsEachKeyThatStartsNothing) {
  const std::string more =
      "Version=1.5\nName[de]=Schreiber\nName[sr@latin]=Urednik\nGenericName=Text \\\\ Editor\nComment=a\\sb\n"
      "Keywords=write;c\\;d;\nStartupWMClass=Editor\nTerminal=false\nNoDisplay=true\nStartupNotify=true\n"
      "PrefersNonDefaultGPU=false\nSingleMainWindow=true\nCategories=Utility;TextEditor;\nOnlyShowIn=GNOME;\n"
      "MimeType=text/plain;image/svg+xml;\n";
  EXPECT_THAT(installed(least + more), HasSubstr(more));
}

TEST(DesktopEntry, KeepsItsActionsWithTheirCommands) {
  const auto text =
      installed(least +
                "Actions=new;quit\n[Desktop Action quit]\nName=Quit\nExec=Contents/Linux/Editor --quit\n"
                "[Desktop Action new]\nName=New\nName[de]=Neu\nIcon=new\nExec=\"Contents/Linux/New Window\"\n");
  EXPECT_THAT(text, HasSubstr("Actions=new;quit;\n\n[Desktop Action quit]\nName=Quit\n"
                              "Exec=/opt/Editor.app/Contents/Linux/Editor --quit\n\n[Desktop Action new]\n"));
  EXPECT_THAT(text, HasSubstr("Exec=\"/opt/Editor.app/Contents/Linux/New Window\"\n"));
}

TEST(DesktopEntry, TellsAllItsPrograms) {
  EXPECT_THAT(
      DesktopEntry(least + "TryExec=Contents/Linux/Try\nActions=a;\n[Desktop Action a]\nName=A\nExec=run\n").programs(),
      ElementsAre("Contents/Linux/Editor", "Contents/Linux/Try", "run"));
  EXPECT_THAT(installed(least + "TryExec=Contents/Linux/Try\n"), HasSubstr("TryExec=/opt/Editor.app/Contents/Linux/Try\n"));
}

TEST(DesktopEntry, QuotesWhatAMenuWouldReadAsMore) {
  EXPECT_EQ(installedCommand("run", "/opt/My Editor.app"), "\"/opt/My Editor.app/run\"\n");
  EXPECT_EQ(installedCommand("run", "/opt/a\"b`c$d\\e%f"), "\"/opt/a\\\\\"b\\\\`c\\\\$d\\\\\\\\e%%f/run\"\n");
  EXPECT_EQ(installedCommand("run --a=b \"c; d\" \"\" \"e\\\\$f\" 5%% %f %i %c %k"),
            "/opt/Editor.app/run --a=b \"c; d\" \"\" \"e\\\\$f\" \"5%%\" %f %i %c %k\n");
  EXPECT_EQ(installedCommand("\"run \\\\\\\\ me\"\\sx"), "\"/opt/Editor.app/run \\\\\\\\ me\" x\n");
}

TEST(DesktopEntry, NamingAProgramOutsideTheBundleIsRefused) {
  for (const char* program : {"/bin/sh", "../../bin/sh", "Contents/../../sh", "./run", "Contents//run", "run/", "\"\"",
                              "\"/bin/sh\"", "Contents/Linux/.."})
    EXPECT_THAT(refusalOfCommand(program), HasSubstr("outside the bundle")) << program;
  EXPECT_THAT(refusal(least + "TryExec=/bin/sh\n"), HasSubstr("line 5: TryExec: a command names a program outside"));
  EXPECT_THAT(refusal(least + "Actions=a;\n[Desktop Action a]\nName=A\nExec=/bin/sh -c x\n"),
              HasSubstr("line 8: Exec: a command names a program outside the bundle: /bin/sh"));
}

// Menus do not agree on these, so that one of them could read another command than was judged.
TEST(DesktopEntry, WithACommandThatCanBeReadInTwoWaysIsRefused) {
  EXPECT_THAT(refusalOfCommand(""), HasSubstr("a command is empty"));
  for (const char* command :
       {"run a;b", "run $HOME", "run 'a b'", "run a\\\\ b", "run >x", "run (a)", "run a\"b\"", "run *"})
    EXPECT_THAT(refusalOfCommand(command), HasSubstr("has to be quoted")) << command;
  for (const char* command : {"run \"a", "run \"a$b\"", "run \"a`b\"", "run \"a\\\\nb\"", "run \"a\\\\"})
    EXPECT_THAT(refusalOfCommand(command), HasSubstr("does not end, or with a wrong escape")) << command;
  EXPECT_THAT(refusalOfCommand("run \"a\"b"), HasSubstr("quoted in part"));
  for (const char* command : {"run %d", "run a%f", "run %", "run \"%f\"", "run %fa", "%f"})
    EXPECT_THAT(refusalOfCommand(command), HasSubstr("a code in a word, or an unknown one")) << command;
  EXPECT_THAT(refusalOfCommand("run %f %U"), HasSubstr("two codes"));
  EXPECT_THAT(refusalOfCommand("run a\\nb"), HasSubstr("an escape"));
}

TEST(DesktopEntry, WithAKeyThatIsNotKnownIsRefused) {
  for (const char* key : {"DBusActivatable", "Path", "URL", "Hidden", "Implements", "X-GNOME-Autostart-enabled",
                          "X-KDE-RunOnDiscreteGpu", "X-Kelto-Bundle", "exec", "Exec[de]", "Icon[de]", "Exec "})
    EXPECT_NE(refusal(least + key + "=true\n"), "") << key;
  EXPECT_EQ(refusal(least + "DBusActivatable=true\n"), "line 5: a key that is not allowed: DBusActivatable");
  EXPECT_EQ(refusal(least + "Actions=a;\n[Desktop Action a]\nName=A\nExec=a\nTerminal=true\n"),
            "line 9: a key that is not allowed: Terminal");
  EXPECT_EQ(refusal(least + "Name[de\xC3\xA4]=x\n"), "line 5: a malformed language: Name[de%C3%A4]");
  EXPECT_EQ(refusal(least + "Name[]=x\n"), "line 5: a malformed language: Name[]");
}

TEST(DesktopEntry, WithSomethingTwiceOrMissingIsRefused) {
  EXPECT_EQ(refusal(least + "Exec=Contents/Linux/Other\n"), "line 5: a key that comes twice: Exec");
  EXPECT_EQ(refusal(least + least), "line 5: a group that is not known");
  EXPECT_THAT(refusal("[Desktop Entry]\nType=Application\nName=E\n"), HasSubstr("without the key Exec"));
  EXPECT_THAT(refusal("[Desktop Entry]\nType=Application\nExec=e\n"), HasSubstr("without the key Name"));
  EXPECT_THAT(refusal("[Desktop Entry]\nName=E\nExec=e\n"), HasSubstr("without the key Type"));
  EXPECT_EQ(refusal(""), "no group [Desktop Entry]");
  EXPECT_EQ(refusal("Name=E\n" + least), "line 1: something before the group [Desktop Entry]");
  EXPECT_EQ(refusal("[Desktop Action a]\n" + least), "line 1: a group that is not known");
}

TEST(DesktopEntry, WithActionsAndGroupsThatDifferIsRefused) {
  const std::string action = "[Desktop Action a]\nName=A\nExec=a\n";
  EXPECT_EQ(refusal(least + "Actions=a;\n"), "no group for the action a");
  EXPECT_THAT(refusal(least + action), HasSubstr("does not announce once"));
  EXPECT_THAT(refusal(least + "Actions=a;\n" + action + action), HasSubstr("does not announce once"));
  EXPECT_THAT(refusal(least + "Actions=a;a;\n" + action), HasSubstr("an action comes twice"));
  EXPECT_THAT(refusal(least + "Actions=a;\n[Desktop Action a]\nName=A\n"), HasSubstr("without the key Exec"));
  EXPECT_THAT(refusal(least + "[X-Other]\na=b\n"), HasSubstr("a group that is not known"));
}

TEST(DesktopEntry, WithAValueOfAnotherKindIsRefused) {
  for (const char* line :
       {"Type=Link", "Terminal=1", "Version=one", "Icon=/etc/passwd", "Icon=", "Icon=a b", "Categories=a b", "MimeType=a,b",
        "OnlyShowIn=a/b", "Comment=a\\n", "Comment=a\\", "Keywords="}) {
    auto text = least;
    if (std::string_view(line).starts_with("Type")) text.erase(text.find("Type"), 17);
    EXPECT_THAT(refusal(text + line + "\n"), HasSubstr("not a value of this key")) << line;
  }
  EXPECT_EQ(refusal(least + "nonsense\n"), "line 5: neither a key with its value nor a group");
}

TEST(DesktopEntry, OfOtherBytesThanPlainTextIsRefused) {
  EXPECT_EQ(refusal(least + "Comment=\xFF\n"), "not UTF-8");
  for (const char character : {'\t', '\r', '\x1B', '\x7F'})
    EXPECT_EQ(refusal(least + "Comment=a" + character + "b\n"), "line 5: a control character");
  EXPECT_EQ(refusal(least + "Comment=a" + std::string(1, '\0') + "b\n"), "line 5: a control character");
  EXPECT_EQ(refusal(least + "#" + std::string(maximumDesktopEntryBytes, 'x')), "too long");
  EXPECT_EQ(refusal(least + "#" + std::string(maximumDesktopEntryBytes - least.size() - 1, 'x')), "");
}

TEST(DesktopEntry, IsNotWrittenForAPathThatNoEntryCanHold) {
  for (const char* path : {"/opt/a\nExec=x", "/opt/a=b", "/opt/\xFF"})
    EXPECT_THAT(refusalOf([&] { installed(least, path); }), HasSubstr("no entry can hold")) << path;
}

TEST(DesktopEntry, IsKnownForOursByTheBundleThatItNames) {
  for (const char* path : {"/opt/Editor.app", "/opt/a \\b%"})
    EXPECT_EQ(DesktopEntry::bundleNamedBy(installed(least, path)), path);
  for (const char* text : {"", "[Desktop Entry]\n", "[Desktop Entry]\nName=E\nX-Kelto-Bundle=/opt/a\n",
                           "#\n[Desktop Entry]\nX-Kelto-Bundle=/opt/a\n", "[Desktop Entry]\nX-Kelto-Bundle=/opt/\\n\n"})
    EXPECT_EQ(DesktopEntry::bundleNamedBy(text), std::nullopt) << text;
}

}  // namespace
}  // namespace tests::tool
