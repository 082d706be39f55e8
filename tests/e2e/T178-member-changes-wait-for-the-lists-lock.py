"""A delivery holds the list's lock; the tool waits for it and then sees what it left."""

import fcntl
import subprocess

from lib import BUILD, LIST, PATIENCE, check, daemon, equal, wait_for


def waits_for_a_lock(pid):
    """The kernel lists those who wait with an arrow: "1: -> FLOCK ADVISORY WRITE PID ..."."""
    with open("/proc/locks", encoding="ascii") as locks:
        return any("->" in line and str(pid) in line.split() for line in locks)


with daemon(start=False) as server:
    with open(server.control("lock"), "r+") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        tool = subprocess.Popen([BUILD / "bin/mlistctl", "--config", server.config, "member", "add",
                                 LIST, "carol@example.com"], stdout=subprocess.DEVNULL)
        wait_for("mlistctl to wait for the lock", lambda: waits_for_a_lock(tool.pid))
        check(tool.poll() is None, "it waits")
        check(b"carol" not in server.control("member").read_bytes(), "nothing has changed yet")
    equal(tool.wait(PATIENCE), 0, "exit status")
    check(b"carol@example.com ON \r\n" in server.control("member").read_bytes(), "then it adds")
