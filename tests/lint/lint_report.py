"""The end of a lint: its findings and its exit status."""
import sys
from pathlib import Path


def end(lint, things="files"):
    """Runs `lint` on the tree named on the command line: it gives what it looked at and one line for each problem. Ends with 1
    when there is a problem, or nothing was looked at."""
    checked, problems = lint(Path(sys.argv[1]))
    print("\n".join(problems))
    print(f"{len(checked)} {things}, {len(problems)} problems")
    sys.exit(1 if problems or not checked else 0)
