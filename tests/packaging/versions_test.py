#!/usr/bin/env python3
"""The version stands in CMakeLists.txt; everything else takes it from there or has to agree."""
import plistlib
import unittest

from support import BUILD, SOURCES, VERSION, run

MAINTAINER = "Somebody <somebody@example.org>"


class Versions(unittest.TestCase):
    def test_the_installers_bundle_has_it(self):
        information = plistlib.loads((BUILD / "bin/KeltoInstaller.app/Contents/Info.plist").read_bytes())
        self.assertEqual((VERSION, VERSION), (information["CFBundleVersion"], information["CFBundleShortVersionString"]))

    def test_the_packages_have_it(self):
        status, said = run(SOURCES / "packaging/changelog.sh", SOURCES / "CHANGELOG.md", MAINTAINER)
        self.assertEqual(0, status, said)
        self.assertTrue(said.startswith(f"kelto ({VERSION}) unstable; urgency=medium\n\n  * "), said)
        self.assertRegex(said, rf"\n\n -- {MAINTAINER}  \w{{3}}, \d\d \w{{3}} \d{{4}} 00:00:00 \+0000\n")

    def test_manual_pages_have_it(self):
        for page in (BUILD / "share/man").glob("man*/*"):
            self.assertIn(f'"Kelto {VERSION}"', page.read_text(), page)


if __name__ == "__main__":
    unittest.main()
