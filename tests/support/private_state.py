"""For programs that run root's tool, which keeps notes below /var/lib: PrivateState.h does the same for test programs."""
import ctypes
import os
import tempfile

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS = 0x20000
MS_REC = 0x4000
MS_PRIVATE = 1 << 18
MNT_DETACH = 2


def mount(source, target, kind, flags=0, options=""):
    return LIBC.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags), options.encode()) == 0


def mount_over():
    """All that is there stays visible."""
    folder = tempfile.mkdtemp(prefix="kelto-state-")
    try:
        if not mount("test", folder, "tmpfs", options="mode=755"):
            return False
        for name in ("upper", "work"):
            os.mkdir(f"{folder}/{name}", 0o755)
        done = mount("overlay", "/var/lib", "overlay",
                     options=f"lowerdir=/var/lib,upperdir={folder}/upper,workdir={folder}/work")
        LIBC.umount2(folder.encode(), MNT_DETACH)
        return done
    finally:
        os.rmdir(folder)


def keep_state_private():
    """From now on, changes to /var/lib by root go to a mount namespace that ends with this process and its children. False if
    there can be none."""
    if os.geteuid() != 0:
        return True
    return (LIBC.unshare(CLONE_NEWNS) == 0 and mount("none", "/", "", MS_REC | MS_PRIVATE) and
            (mount_over() or mount("test", "/var/lib", "tmpfs", options="mode=755")))
