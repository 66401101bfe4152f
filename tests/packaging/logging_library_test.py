#!/usr/bin/env python3
"""The logging library as other programs meet it."""
import re
import unittest

from logging_examples import LoggingFolder
from support import require_header, run

# A program needs no other libraries for its log.
SYSTEM_LIBRARIES = re.compile(r"lib(stdc\+\+|gcc_s|m|c)\.so\.\d+|ld-linux.*")


class LoggingLibrary(LoggingFolder):
    def test_needs_the_libraries_of_the_languages_only_and_has_a_version(self):
        _, said = run("readelf", "-dW", self.libraries / "libkelto-logging.so")
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", said)
        self.assertIn("libc.so.6", needed)
        self.assertEqual([each for each in needed if not SYSTEM_LIBRARIES.fullmatch(each)], [])
        self.assertEqual(re.findall(r"\(SONAME\).*\[(.*)\]", said), ["libkelto-logging.so.1"])
        self.assertTrue((self.libraries / "libkelto-logging.a").exists())

    def test_shows_the_designed_names_and_hides_the_rest(self):
        _, said = run("nm", "-DC", "--defined-only", self.libraries / "libkelto-logging.so")
        self.assertIn("DDLog::flushLog()", said)
        self.assertEqual(re.findall(r"(?m)^.*\b(?:LogCore|LogDelivery|LogRing|posix|DefaultsFile)::.*$", said), [])

    def test_headers_need_no_other_folder_than_that_of_all_headers(self):
        headers = list((self.prefix / "include").rglob("*.h"))
        self.assertGreater(len(headers), 20)
        for header in headers:
            self.assertTrue(header.relative_to(self.prefix / "include").parts[0] == "kelto", header)
            self.assertNotIn('#include "', header.read_text(), header)

    def test_forces_no_flags_on_a_program(self):
        for flag in self.flags("--cflags", "--libs"):
            self.assertRegex(flag, r"^(-I.*|-L.*|-lkelto-logging)$")

    def test_examples_do_what_they_say(self):
        self.expect_examples(self.built_examples("g++"))

    def test_a_statement_without_a_platform_says_so_once(self):
        source = self.folder / "lost.cpp"
        source.write_text("#include <kelto/logging.h>\nint main() {\n  static kelto::DDLogSite site{1};\n"
                          '  for (int i = 0; i < 3; ++i) site.error("lost");\n'
                          '  kelto::KTLogger::sharedLogger()->log_level_message("main", 0, "lost");\n}\n')
        said = self.ran(self.compiled("g++", source))
        self.assertEqual("logging: a statement is lost, because no platform is installed; make one at the start of main\n", said)

    PLUGIN = """#include <kelto/logging.h>
extern "C" void logSomething() {
  const char* const arguments[] = {"plugin"};
  const kelto::Logging logging(1, arguments);
  kelto::KTLogger::sharedLogger()->log_level_message("plugin", 0, "something");
}
"""
    HOST = """#include <dlfcn.h>
#include <cstdio>
#include <thread>
int main(int, char** arguments) {
  void* plugin = dlopen(arguments[1], RTLD_NOW);
  std::thread(reinterpret_cast<void (*)()>(dlsym(plugin, "logSomething"))).join();
  dlclose(plugin);
  std::puts(dlopen(arguments[1], RTLD_NOW | RTLD_NOLOAD) == nullptr ? "gone" : "there");
}
"""

    def test_a_plugin_with_a_copy_of_it_stays_where_threads_of_logging_run(self):
        # Nothing but the entry is visible: the linker does not keep the plugin for the sake of a symbol.
        visible = self.folder / "visible"
        visible.write_text("{ global: logSomething; local: *; };\n")
        (self.folder / "plugin.cpp").write_text(self.PLUGIN)
        (self.folder / "host.cpp").write_text(self.HOST)
        plugin = self.compiled("g++", self.folder / "plugin.cpp", "-shared", "-fPIC", self.libraries / "libkelto-logging.a",
                               f"-Wl,--version-script={visible}", library=False)
        host = self.compiled("g++", self.folder / "host.cpp")
        self.assertEqual(["plugin: <Always> something", "there"], self.ran(host, plugin).splitlines())

    BRACES = """#include <kelto/logging/braces.h>
int main(int argc, char** argv) {
  const kelto::Logging logging(argc, argv);
  kelto::DDLog::addLogger(std::make_shared<kelto::DDFileLogger>(kelto::Logging::current()));
  static kelto::BraceSite site{kelto::logLevelNamed("warning").value()};
  const std::string text = "text";
  STATEMENTS
}
"""

    def test_formats_with_braces_are_checked_while_compiling(self):
        require_header("fmt/format.h")
        source = self.folder / "braces.cpp"
        source.write_text(self.BRACES.replace("STATEMENTS", """
  site.error("{} of {:03d} %d {:.1f}", text, 7, 0.25);
  site.info("silent {}", 1);
  site.warning(kelto::LogFields{{"key", 1}}, "{1} before {0}", "b", argc);"""))
        self.ran(self.compiled("g++", source))
        self.assertEqual(["text of 007 %d 0.2", "1 before b"], self.lines_in(self.logs_of("braces")))
        for statement in ('site.error("{} {}", 1);', 'site.error("{:d}", text);', 'site.error("{", 1);'):
            source.write_text(self.BRACES.replace("STATEMENTS", statement))
            status, _ = run("g++", "-std=c++20", "-fsyntax-only", source, *self.flags("--cflags"))
            self.assertNotEqual(0, status, statement)


if __name__ == "__main__":
    unittest.main()
