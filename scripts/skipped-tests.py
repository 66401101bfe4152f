#!/usr/bin/env python3
"""Prints which tests were skipped and why, from a JUnit file of ctest. Usage: skipped-tests.py FILE"""
import re
import sys
import xml.etree.ElementTree as ElementTree
from collections import defaultdict

reasons = defaultdict(list)
for case in ElementTree.parse(sys.argv[1]).getroot().iter("testcase"):
    if case.get("status") != "notrun" and case.find("skipped") is None:
        continue
    text = case.findtext("system-out") or ""
    found = re.search(r"Skipped\n(.+)", text) or re.search(r"^SKIP: (.+)", text, re.MULTILINE)
    reasons[found.group(1).strip() if found else "no reason was given"].append(case.get("name"))

for reason, names in sorted(reasons.items()):
    print(f"Skipped {len(names)}: {reason}")
    for name in names[:5]:
        print(f"    {name}")
    if len(names) > 5:
        print(f"    and {len(names) - 5} more")
