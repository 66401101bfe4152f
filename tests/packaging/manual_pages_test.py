#!/usr/bin/env python3
"""The manual pages."""
import re
import unittest

from support import BUILD, SOURCES, require, run

PAGES = sorted((BUILD / "share/man").glob("man*/*"))
SECTIONS = ("NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO")


class ManualPages(unittest.TestCase):
    def test_the_formatter_has_nothing_to_complain_about(self):
        for page in PAGES:
            status, said = run("man", "--warnings", "--encoding=UTF-8", "--local-file", "--troff-device=utf8", "--ditroff", page,
                               environment={"MANROFFSEQ": ""})
            self.assertEqual(0, status, said)
            self.assertNotRegex(said, r"(?m)^(<standard input>|troff|\S+):.*(warning|error)", page)

    def test_every_program_that_is_installed_has_one(self):
        names = {page.name for page in PAGES}
        for name in ("kelto-authorizationd.8", "kelto-assistant-tool.8", "kelto-installer.1", "kelto-manifest.1",
                     "kelto-defaults.1", "kelto.1", "authorization.conf.5"):
            self.assertIn(name, names)

    def test_every_page_answers_the_same_questions(self):
        for page in PAGES:
            text = page.read_text()
            self.assertEqual([each for each in SECTIONS if f"\n.SH {each}\n" not in text], [], page)

    def test_the_options_of_the_broker_are_those_that_it_reads(self):
        page = (BUILD / "share/man/man8/kelto-authorizationd.8").read_text().replace("\\-", "-")
        source = (SOURCES / "platform/linux/authorizationd/main.cpp").read_text()
        for option in ("--system", "--session", "--idle-seconds", "--form-seconds", "--right-seconds", "--person-seconds",
                       "--service-seconds", "--tools"):
            self.assertIn(option, page)
            self.assertIn(f'"{option}"', source)

    def test_the_options_of_the_command_line_are_those_of_its_help(self):
        page = (BUILD / "share/man/man1/kelto.1").read_text().replace("\\-", "-")
        status, said = run(BUILD / "bin/KeltoInstaller.app/Contents/Linux/kelto", "--help")
        self.assertEqual(0, status)
        words = set(re.findall(r"^  ([a-z]+) ", said, re.MULTILINE)) | set(re.findall(r"--[a-z-]+", said))
        self.assertIn("update", words)
        for word in words:
            self.assertIn(word, page)


if __name__ == "__main__":
    require("man")
    unittest.main()
