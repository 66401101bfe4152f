#!/usr/bin/env python3
"""The protocol lint finds repeated literals: each case is a small tree beside a small protocol."""
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import protocol_lint  # noqa: E402

HEADER = """#pragma once
#include <string_view>
// The words "not a constant" stand in a comment.
namespace protocol {
namespace command {
inline constexpr std::string_view replaceItem = "replace item";
inline constexpr const char* moveFile = "move file";  // "neither is this"
}  // namespace command
inline constexpr std::string_view commandKey =
    "command";
inline constexpr std::string_view verdict{"tool result ok"};
inline constexpr char busName[] = "com.kelto.Authorization1";
inline constexpr std::array arguments = {std::string_view("SrcPath"), std::string_view("IsUpdate")};
inline constexpr int limit = 512;
inline void f() { log("not a constant either"); }
}  // namespace protocol
"""
XML = '<node><interface name="com.kelto.Authorization1"><method name="ExecuteTool"/></interface></node>\n'


class ProtocolLint(unittest.TestCase):
    def lint(self, **files):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            texts = {"protocol/Tool.h": HEADER, "protocol/bus.xml": XML}
            for name, text in {**texts, **{key.replace("__", "/").replace("_DOT_", "."): text for key, text in files.items()}}.items():
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return protocol_lint.lint(root)

    def found(self, text, suffix="cpp"):
        return self.lint(**{f"app__a_DOT_{suffix}": text})[1]

    def test_the_texts_are_those_of_the_constants_and_of_the_interface(self):
        self.assertEqual({"replace item", "move file", "command", "tool result ok", "com.kelto.Authorization1", "SrcPath", "IsUpdate",
                          "ExecuteTool"}, set(self.lint()[0]))

    def test_constants_are_known_by_name(self):
        known = dict(protocol_lint.constants_module().constants_of(HEADER))
        self.assertEqual(("move file",), known["command::moveFile"])
        self.assertEqual(("SrcPath", "IsUpdate"), known["arguments"])

    def test_a_repeated_literal_is_found(self):
        self.assertEqual(['app/a.cpp:2: "move file" stands in protocol/Tool.h'], self.found('\nrun("move file");\n'))

    def test_a_repeated_literal_is_found_in_python(self):
        self.assertEqual(1, len(self.found("run('move file')\n", "py")))
        self.assertEqual(1, len(self.found('bus = "com.kelto.Authorization1"\n', "py")))

    def test_a_text_inside_a_longer_literal_counts(self):
        self.assertEqual(1, len(self.found('run("-SrcPath");\n')))
        self.assertEqual(1, len(self.found('expect("com.kelto.Authorization1.Error");\n')))

    def test_a_plain_word_counts_only_as_a_whole_literal(self):
        self.assertEqual(1, len(self.found('at("command");\n')))
        self.assertEqual([], self.found('say("the command has failed");\n'))

    def test_comments_and_includes_pass(self):
        self.assertEqual([], self.found('// "move file" moves.\nint a;  // "command"\n#include "protocol/command"\n'))
        self.assertEqual([], self.found('# "move file" moves.\n', "py"))

    def test_the_name_of_a_constant_passes(self):
        self.assertEqual([], self.found("run(protocol::command::moveFile);\n"))

    def test_the_protocol_itself_passes(self):
        self.assertEqual([], self.lint()[1])


if __name__ == "__main__":
    unittest.main()
