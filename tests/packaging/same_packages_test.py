#!/usr/bin/env python3
"""Two builds of the same sources give the same packages, wherever, whenever and in whatever language they are built.

KELTO_PACKAGES is the folder of packages that are built already (else ./package.sh builds these too). Each build takes minutes.
"""
import hashlib
import os
import pathlib
import unittest

from support import SOURCES, Folder, require, run

OTHERWISE = {"TZ": "Pacific/Kiritimati", "LANG": "de_DE.UTF-8", "LC_ALL": "C", "HOME": "/nonexistent", "CCACHE_DISABLE": "1"}


class SamePackages(Folder):
    def built(self, name, environment=None, umask=-1):
        status, said = run(SOURCES / "package.sh", self.folder / name, environment=environment, umask=umask)
        self.assertEqual(0, status, said)
        return self.folder / name

    @staticmethod
    def sums(folder):
        return {package.name: hashlib.sha256(package.read_bytes()).hexdigest() for package in folder.glob("*.deb")}

    def test_come_from_the_same_sources(self):
        given = os.environ.get("KELTO_PACKAGES")
        first = self.sums(pathlib.Path(given) if given else self.built("one"))
        second = self.sums(self.built("in/another/folder", OTHERWISE, 0o077))
        self.assertGreater(len(first), 6)
        self.assertEqual(first, second)


if __name__ == "__main__":
    require("dpkg-buildpackage", "lintian")
    unittest.main()
