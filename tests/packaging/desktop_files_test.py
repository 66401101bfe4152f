#!/usr/bin/env python3
"""The files that desktops and software centres read."""
import unittest

from support import BUILD, SOURCES, require, run


class DesktopFiles(unittest.TestCase):
    def test_software_centres_accept_the_description(self):
        status, said = run("appstreamcli", "validate", "--no-net", "--strict", "--explain",
                           BUILD / "share/metainfo/com.kelto.installer.metainfo.xml")
        self.assertEqual(0, status, said)

    def test_desktops_accept_the_entry(self):
        status, said = run("desktop-file-validate", SOURCES / "packaging/desktop/com.kelto.installer.desktop")
        self.assertEqual((0, ""), (status, said))


if __name__ == "__main__":
    require("appstreamcli", "desktop-file-validate")
    unittest.main()
