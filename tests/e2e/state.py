"""Root's tool keeps notes below /var/lib; a scenario leaves the machine's alone."""
import os
import pathlib

from world import Skip, check, scenario


@scenario("system", bare=True)
def state_of_a_scenario_is_its_own(world):
    """Files that it writes there are not seen outside."""
    if os.geteuid() != 0:
        raise Skip("only root's tool keeps notes there")
    probe = pathlib.Path("/var/lib", world.folder.name)
    probe.touch()
    try:
        check("the machine's has no such file", not os.path.exists(f"/proc/{os.getppid()}/root{probe}"))
    finally:
        probe.unlink()
