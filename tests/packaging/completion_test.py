#!/usr/bin/env python3
"""Shell completion: it offers the commands and options that the command line has."""
import re
import shutil
import unittest

from support import BUILD, SOURCES, require, run

FOLDER = SOURCES / "packaging/completion"


def words_of_help():
    status, said = run(BUILD / "bin/KeltoInstaller.app/Contents/Linux/kelto", "--help")
    assert status == 0, said
    return re.findall(r"^  ([a-z]+) ", said, re.MULTILINE), set(re.findall(r"^  (--[a-z-]+)", said, re.MULTILINE)) | {"--to"}


class Completion(unittest.TestCase):
    def complete(self, *words):
        """The words that bash offers for the last one."""
        script = (f'source "{FOLDER}/kelto.bash"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); compopt() {{ :; }}; _kelto; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        status, said = run("bash", "-c", script, "bash", "kelto", *words)
        self.assertEqual(0, status, said)
        return said.split()

    def test_bash_offers_every_command(self):
        commands, _ = words_of_help()
        self.assertGreater(len(commands), 5)
        self.assertLessEqual(set(commands), set(self.complete("")))
        self.assertEqual(["remove", "rollback"], self.complete("r"))

    def test_bash_offers_the_options_of_each_command_and_no_others(self):
        commands, options = words_of_help()
        offered = {command: set(self.complete(command, "--")) for command in commands}
        self.assertEqual(options, set().union(*offered.values()))
        for command, words in offered.items():
            for word in words - {"--help"}:
                value = {"--wait-pid": "4711", "--to": "/", "--version": "1", "--journal": "/"}.get(word)
                # A bundle too many is refused after the option was read.
                given = [command, word, *([value] if value else []), "/a", "/b"]
                status, said = run(BUILD / "bin/KeltoInstaller.app/Contents/Linux/kelto", *given)
                self.assertIn("more than one bundle", said)
                self.assertEqual(2, status)

    def test_zsh_knows_the_same_words(self):
        commands, options = words_of_help()
        text = (FOLDER / "_kelto").read_text()
        for command in commands:
            self.assertIn(f"'{command}:", text)
        for option in options:
            self.assertIn(option, text)
        if shutil.which("zsh"):
            self.assertEqual((0, ""), run("zsh", "-n", FOLDER / "_kelto"))


if __name__ == "__main__":
    require("bash")
    unittest.main()
