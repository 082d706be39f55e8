"""A pipe has the place of one file of a list: its mail is put off, other lists are served."""

import os

from lib import daemon, equal, message

FILES = ("member", "active", "dgtstat", "msg/bnrtop.txt")
LISTS = [f"list{n}@example.jp" for n in range(len(FILES))]

with daemon(lists=(*LISTS, "whole@example.jp"), start=False) as server:
    for name, address in zip(FILES, LISTS):
        path = server.control(name, address)
        path.unlink(missing_ok=True)
        os.mkfifo(path)
    server.start()
    for name, address in zip(FILES, LISTS):
        code, text = server.post(message(), to=address)
        equal(code, 451, f"a posting to the list without {name} ({text!r})")
        equal(server.archived(address), [], f"archive of the list without {name}")
        server.ctl("list", "check", address, status=None)
    server.accept(message(), to="whole@example.jp")
    # Put right, the list takes what was put off.
    path = server.control("msg/bnrtop.txt", LISTS[-1])
    path.unlink()
    server.accept(message(), to=LISTS[-1])
