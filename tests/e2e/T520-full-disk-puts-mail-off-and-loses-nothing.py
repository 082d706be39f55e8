"""A small disk of its own, full to every level around what a posting, a command and a new list need:
of room and of names."""

import os
import subprocess
import sys

from lib import LIST, MEMBERS, check, daemon, equal, message, wait_for
from sink import Sink

ROOM = range(0, 160, 4)         # kilobytes left
NAMES = range(0, 26)            # files that can still be made
BODY = b"x" * 70 + b"\r\n"
CAROL = "carol@example.com"

if "MLIST_OWN_MOUNTS" not in os.environ:
    os.environ["MLIST_OWN_MOUNTS"] = "yes"
    os.execvp("unshare", ["unshare", "--mount", sys.executable, "-B", *sys.argv])


class SmallDisk:
    """Over the daemon's data; mounted in a namespace of ours, it goes with us."""

    def __init__(self, server, **limits):
        self.path, self.filler = server.data, server.data / "filler"
        options = ",".join(f"{name}={value}" for name, value in limits.items())
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "none", self.path], check=True)

    def close(self):
        subprocess.run(["umount", self.path], check=True)

    def leave_room(self, kilobytes):
        self.filler.mkdir()
        status = os.statvfs(self.path)
        (self.filler / "all").write_bytes(
            bytes(max(0, status.f_bfree * status.f_frsize - kilobytes * 1024)))
        equal(os.statvfs(self.path).f_bfree * status.f_frsize, kilobytes * 1024, "room")

    def leave_names(self, count):
        self.filler.mkdir()
        for number in range(os.statvfs(self.path).f_ffree - count):
            (self.filler / str(number)).touch()
        equal(os.statvfs(self.path).f_ffree, count, "names")

    def free(self):
        for file in self.filler.iterdir():
            file.unlink()
        self.filler.rmdir()


def command(server, line, number):
    mail = message(sender=CAROL.encode(), number=number, body=line.encode() + b"\r\n")
    return server.post(mail, to="mylist-ctl@example.jp", sender=CAROL)


def try_all(server, level, words):
    """What each of the three came to; whether the list is there already."""
    codes = [server.post(words["mail"])[0], command(server, words["line"], words["number"])[0]]
    for code in codes:
        check(code in (250, 451, 452), f"{level}: answered with {code}")
    server.ctl("list", "create", words["list"], status=None)
    made = server.complaint == ""
    if not made:
        check(server.complaint.startswith("mlistctl: "), f"{level}: {server.complaint!r}")
    return codes, made


def try_again(server, level, words, codes, made):
    """With room everything succeeds, and only what had not before has to be repeated."""
    if codes[0] != 250:
        server.accept(words["mail"])
    if codes[1] != 250:
        equal(command(server, words["line"], words["number"])[0], 250, f"{level}: the command")
    if not made:
        server.ctl("list", "create", words["list"])
    status = next(line.split()[1] for line in server.ctl("member", "list", LIST).splitlines()
                  if line.startswith(CAROL))
    equal(status, words["line"].split()[1], f"{level}: status of {CAROL}")
    report = server.ctl("list", "check", status=None)
    # A posting that was archived when the queue had no room is kept beside, for the operator.
    wrong = [line for line in report.splitlines() if not line.startswith("    ")
             and "in order" not in line and "archived but not distributed" not in line]
    equal(wrong, [], f"{level}: problems")
    equal(server.archived()[-1].count(BODY), words["mail"].count(BODY), f"{level}: lines archived")


def expect_all_mail(server, sink, sent):
    archived = server.archived()
    for number in range(1, sent + 1):
        token = b"<a%d@example.net>" % number
        check(any(token in mail for mail in archived), f"mail {number} is not in the archive")
        for member in MEMBERS:
            wait_for(f"mail {number} at {member}", lambda: any(
                token in mail for mail in sink.received_by(member)))
    numbers = [number for number, *_ in server.index()[1]]
    equal(numbers, list(range(1, len(archived) + 1)), "numbers")
    return len(archived) - sent


def run(what, limits, levels, fill):
    sink = Sink()
    settings = {"relay": {"target": sink.target, "retry_min": 1, "retry_max": 1}}
    with daemon(settings, lists=(), start=False) as server:
        disk = SmallDisk(server, **limits)
        try:
            server.make_list(LIST, members=(*MEMBERS, CAROL))
            server.start()
            put_off = 0
            for number, level in enumerate(levels, 1):
                words = {"mail": message(number=number, body=BODY * (1 + 300 * (number % 3))),
                         "line": ("# off", "# on")[number % 2], "number": number,
                         "list": f"list{number}@example.jp"}
                wait_for("an empty queue", server.queue_is_empty)   # which would make room
                fill(disk, level)
                codes, made = try_all(server, level, words)
                disk.free()
                try_again(server, level, words, codes, made)
                put_off += codes.count(451) + codes.count(452) + (not made)
            twice = expect_all_mail(server, sink, len(levels))
            check(put_off > len(levels) // 4, f"only {put_off} of {3 * len(levels)} met a full disk")
            print(f"{what}: {put_off} of {3 * len(levels)} put off, {twice} mails archived twice")
            server.stop()
        finally:
            if server.process:
                server.kill()
            disk.close()


run("room", {"size": "6m"}, ROOM, SmallDisk.leave_room)
run("names", {"size": "16m", "nr_inodes": 2500}, NAMES, SmallDisk.leave_names)
