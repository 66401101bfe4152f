"""The texts that the programs of the system agree on, read from the headers of protocol/.

Every constant `inline constexpr const char* name = "text";` there is a name of this module. The name of a launch
argument comes with its dash, as on a command line: protocol.trashPathArgument starts with "-". A method of the broker
is a name that ends so: protocol.copyRightsMethod.
"""
import re
from pathlib import Path

_FOLDER = Path(__file__).resolve().parent.parent / "protocol"
for _header in _FOLDER.glob("*.h"):
    for _name, _text in re.findall(r'inline constexpr const char\* (\w+) = "([^"]*)";', _header.read_text(encoding="utf-8")):
        globals()[_name] = "-" + _text if _name.endswith("Argument") else _text
    for _name, _text in re.findall(r'inline constexpr BrokerMethod (\w+)\{"(\w+)"', _header.read_text(encoding="utf-8")):
        globals()[_name + "Method"] = _text
