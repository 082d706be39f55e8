import os
import pathlib

from lib import daemon, equal, message

with daemon() as server:
    server.accept(message())
    folder = pathlib.Path(f"/proc/{server.process.pid}/fd")
    targets = {int(link.name): os.readlink(link) for link in folder.iterdir()}
    for number in range(3, 134):
        equal(targets.get(number), "/dev/null", f"descriptor {number}")
    equal([targets[number] for number in (0, 1)], ["/dev/null"] * 2, "standard input and output")
