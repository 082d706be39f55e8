import os
import shutil
import tempfile
import threading

from lib import SANITIZED, check, daemon, equal, memory, message, wait_for

LISTS = 1000
IN_USE = 100
LIMIT = 20 * 1024


def name(number):
    return f"list{number:04}@example.jp"


def copy_of_the_list(server, number):
    local = name(number).split("@")[0]
    for below in ("control", "archive"):
        folder = server.data / below / "example.jp"
        shutil.copytree(folder / "mylist", folder / local)
    init = server.control("init", name(number))
    init.write_bytes(init.read_bytes().replace(b"mylist", local.encode()))


def post_to(server, numbers):
    with server.client() as client:
        for number in numbers:
            client.sendmail("alice@example.net", name(number), message(number=number))


# Thousands of small files: a disk would only make this slow.
if os.access("/dev/shm", os.W_OK):
    tempfile.tempdir = "/dev/shm"
with daemon(start=False) as server:
    for number in range(LISTS - 1):
        copy_of_the_list(server, number)
    server.start()
    started = memory(server.process.pid)
    posters = [threading.Thread(target=post_to, args=(server, range(n, IN_USE, 8)))
               for n in range(8)]
    for poster in posters:
        poster.start()
    for poster in posters:
        poster.join()
    for number in range(IN_USE):
        equal(len(server.archived(name(number))), 1, f"archive of {name(number)}")
    wait_for("an empty queue", server.queue_is_empty)
    idle = memory(server.process.pid)
    print(f"{LISTS} lists: {started} KB resident after the start, {idle} KB after {IN_USE} "
          "postings by 8 clients")
    if SANITIZED:
        print("not judged: a sanitizer's own memory is in it")
    else:
        check(max(started, idle) < LIMIT, f"{started} KB and {idle} KB, wanted {LIMIT}")
