import os
import pathlib

from lib import daemon, equal, message

with daemon() as server:
    server.accept(message())
    folder = pathlib.Path(f"/proc/{server.process.pid}/fd")
    for number in (0, 1, *range(3, 134)):
        equal(os.readlink(folder / str(number)), "/dev/null", f"descriptor {number}")
