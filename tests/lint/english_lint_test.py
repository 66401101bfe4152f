#!/usr/bin/env python3
"""The English lint tells plain sentences from the others: each case is the text of one file."""
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import english_lint  # noqa: E402


class EnglishLint(unittest.TestCase):
    def lines(self, text, name="a.cpp"):
        return [number for number, *_ in english_lint.findings(Path(name), text)]

    def test_plain_comments_pass(self):
        self.assertEqual([], self.lines("// Drop the groups: no job needs them.\nint a;  // nullptr if there is no such account\n"))

    def test_a_sentence_that_opens_with_a_clause_is_found(self):
        for opening in ("What is flexible shares the rest.", "Whoever waits delivers.", "Who is asked next.",
                        "So many records ahead.", "So often the queue is read.", "As many looks mean that it is stuck."):
            self.assertEqual([1], self.lines(f"// {opening}\n"), opening)

    def test_a_question_passes(self):
        self.assertEqual([], self.lines("// What is the next free\n// place? The first one.\n"))

    def test_such_a_word_inside_a_sentence_passes(self):
        self.assertEqual([], self.lines("// Returns\n// what is left, and says who left it: what was asked for.\n"))

    def test_a_sentence_that_begins_inside_a_line_counts_there(self):
        self.assertEqual([2], self.lines("// The first part\n// is over. What is left goes.\n"))

    def test_is_no_and_is_none_are_found(self):
        self.assertEqual([1], self.lines("// A date is no number.\n"))
        self.assertEqual([1], self.lines("// A label at nullptr is none.\n"))

    def test_quoted_words_pass(self):
        self.assertEqual([], self.lines('// Nothing "is no number" here, nor `is none`.\n'))

    def test_existence_and_comparison_pass(self):
        self.assertEqual([], self.lines("// There is no folder. The copy is no longer there.\n"))

    def test_comments_at_the_end_of_a_line_and_in_blocks_count(self):
        self.assertEqual([1], self.lines("int a;  // What is left.\n"))
        self.assertEqual([2], self.lines("/* Fine.\n * What is left goes.\n */\n"))

    def test_scripts_build_files_and_pages_count(self):
        self.assertEqual([1], self.lines("# What is left.\n", "a.py"))
        self.assertEqual([2], self.lines('def f():\n    """What is left."""\n', "a.py"))
        self.assertEqual([1], self.lines("# What is left.\n", "CMakeLists.txt"))
        self.assertEqual([3], self.lines("# Page\n\n- What is left goes.\n", "a.md"))

    def test_names_of_tests_count(self):
        self.assertEqual([1], self.lines("TEST_F(Suite, WhatIsLeftGoes) {\n"))
        self.assertEqual([1], self.lines("TEST(Suite, ADateIsNoNumber) {\n"))
        self.assertEqual([1], self.lines("    def test_what_is_left_goes(self):\n", "a.py"))
        self.assertEqual([], self.lines("TEST(Suite, TheRestGoes) {\n"))

    def test_messages_count_but_not_code_in_strings(self):
        self.assertEqual([1], self.lines('log("the integer is no number");\n'))
        self.assertEqual([], self.lines('log("what");\nlog("// What is left");\n'))


if __name__ == "__main__":
    unittest.main()
