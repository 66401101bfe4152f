#!/usr/bin/env python3
"""The contract lint finds an interface without a contract, a suite that does not run, and a name that is out of date."""
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import contracts_lint  # noqa: E402

TREE = {
    "platform/Shell.h": "class Shell {\n  virtual int run() = 0;\n};\nclass Plain {\n  virtual void tell() {}\n};\n",
    "foundation/views/Views.h": "class Views {\n  virtual int load(int one,\n                   int other) = 0;\n};\n",
    "platform/linux/Shell.h": "class Shell final : public platform::Shell {\n};\nclass Other : Plain {\n};\n",
    "platform/linux/qt/Views.cpp": "  class QtViews final : public Base, public foundation::Views {\n  };\n",
    "platform/Delegate.h": "class Delegate {\n  virtual void launched() = 0;\n};\n",
    "tests/platform/contracts/ShellContract.h":
        "#pragma once\n// The contract of Shell\n// and Views. More.\nREGISTER_TYPED_TEST_SUITE_P(ShellContract, A);\n",
    "tests/platform/FakeSession_test.cpp": "INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ShellContract, One);\n",
    "tests/platform/linux/Session_test.cpp": "INSTANTIATE_TYPED_TEST_SUITE_P(Linux, ShellContract, Other);\n"}


class ContractsLint(unittest.TestCase):
    def problems(self, changed):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in {**TREE, **changed}.items():
                path = Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return contracts_lint.lint(Path(folder))

    def test_interfaces_of_both_rooms_that_linux_implements_are_covered(self):
        self.assertEqual(({"Shell", "Views"}, []), self.problems({}))

    def test_an_interface_without_a_contract_is_found(self):
        text = TREE["tests/platform/contracts/ShellContract.h"].replace("\n// and Views", "")
        self.assertEqual(["Views has no contract in tests/platform/contracts"],
                         self.problems({"tests/platform/contracts/ShellContract.h": text})[1])

    def test_a_contract_of_nothing_is_found(self):
        self.assertEqual(["Views, which a contract names, is not an interface"],
                         self.problems({"foundation/views/Views.h": ""})[1])

    def test_a_suite_that_runs_in_one_place_only_is_found(self):
        self.assertEqual(["ShellContract does not run on Fake"], self.problems({"tests/platform/FakeSession_test.cpp": ""})[1])
        self.assertEqual(["ShellContract does not run on Linux"], self.problems({"tests/platform/linux/Session_test.cpp": ""})[1])


if __name__ == "__main__":
    unittest.main()
