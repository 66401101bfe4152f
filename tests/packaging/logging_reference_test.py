#!/usr/bin/env python3
"""The reference of the logging library, as Doxygen makes it of the headers."""
import unittest

from support import SOURCES, Folder, require, run


class LoggingReference(Folder):
    def test_is_made_without_a_warning_and_tells_what_the_headers_tell(self):
        status, said = run(SOURCES / "scripts/logging-reference.sh", self.folder / "reference")
        self.assertEqual((0, ""), (status, said))
        page = (self.folder / "reference/html/classDDAbstractDatabaseLogger.html").read_text(encoding="utf-8")
        self.assertIn("Save when this many records are unsaved", page)


if __name__ == "__main__":
    require("doxygen")
    unittest.main()
