#!/usr/bin/env python3
"""Tests process_watch: process_watch_test.py PROGRAM."""
import os
import re
import signal
import subprocess
import sys
import unittest

PROGRAM = sys.argv.pop()


class ProcessWatch(unittest.TestCase):
    def watch(self, line, patience="60000"):
        """The status and the output of a test that is this line of shell."""
        done = subprocess.run([PROGRAM, "sh", "-c", line], env=os.environ | {"PROCESS_WATCH_PATIENCE": patience},
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        return done.returncode, done.stdout

    def test_the_status_is_that_of_the_test(self):
        for status in (0, 1, 77):
            self.assertEqual((status, "said\n"), self.watch(f"echo said; exit {status}"))

    def test_a_signal_that_ends_the_test_is_not_taken_for_a_failure(self):
        self.assertEqual((-signal.SIGTERM, ""), self.watch("kill $$"))

    def test_a_program_that_cannot_be_run_is_a_failure(self):
        self.assertEqual(127, subprocess.run([PROGRAM, "/no/such/program"], stderr=subprocess.DEVNULL).returncode)

    def test_processes_that_are_left_are_named_and_killed(self):
        status, output = self.watch("setsid --fork sh -c 'sleep 100 & echo ready; wait' | head -n 1", patience="0")
        self.assertEqual(1, status)
        left = re.findall(r"^The test has left process (\d+): .*sleep 100", output, re.MULTILINE)
        self.assertEqual(2, len(left), output)
        for process in left:
            self.assertFalse(os.path.exists(f"/proc/{process}"), output)

    def test_a_process_that_is_ending_is_waited_for(self):
        self.assertEqual((0, ""), self.watch("setsid --fork sleep 0.1"))


if __name__ == "__main__":
    unittest.main()
