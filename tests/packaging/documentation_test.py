#!/usr/bin/env python3
"""The pages of the package kelto-doc, as its own rules lay them out."""
import re
import shutil
import unittest

from support import SOURCES, Folder, require, run

PAGES = "debian/kelto-doc/usr/share/doc/kelto-doc"
LINK = re.compile(r"\]\(([^)\s]+)\)|\b(?:src|href)=\"([^\"]+)\"")


class Documentation(Folder):
    def step(self, *words):
        status, said = run(*words, cwd=self.folder, environment={"DH_OPTIONS": "-pkelto-doc"})
        self.assertEqual(0, status, said)
        return said

    def setUp(self):
        super().setUp()
        for entry in SOURCES.iterdir():
            if entry.is_file():
                shutil.copy(entry, self.folder)
            elif entry.name not in ("build", "debian", ".git"):
                (self.folder / entry.name).symlink_to(entry)
        shutil.copytree(SOURCES / "packaging/debian", self.folder / "debian")
        changelog = self.step(SOURCES / "packaging/changelog.sh", SOURCES / "CHANGELOG.md", "Nobody <nobody@example.com>")
        (self.folder / "debian/changelog").write_text(changelog)
        for words in (("dh_installdocs",), ("dh_install",), ("make", "-f", "debian/rules", "override_dh_compress")):
            self.step(*words)
        self.pages = self.folder / PAGES

    def test_are_all_there_and_can_be_read_as_they_are(self):
        for page in ("README.md", "ARCHITECTURE.md", *(f"docs/{page.name}" for page in (SOURCES / "docs").glob("*.md"))):
            self.assertEqual((self.pages / page).read_bytes(), (SOURCES / page).read_bytes(), page)

    def test_have_links_to_files_that_are_installed(self):
        links = [(page, link[0] or link[1]) for page in self.pages.rglob("*.md") for link in LINK.findall(page.read_text())]
        self.assertGreater(len(links), 30)
        for page, link in links:
            if re.match(r"https?://|#", link):
                continue
            target = (page.parent / link.partition("#")[0]).resolve()
            self.assertTrue(target.is_relative_to(self.pages.resolve()), (page.name, link))
            self.assertTrue(target.is_file(), (page.name, link))


if __name__ == "__main__":
    require("dh_install", "make")
    unittest.main()
