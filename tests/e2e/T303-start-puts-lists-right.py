import os
import time

from lib import MEMBERS, check, daemon, equal, message

DAY = 86400

with daemon(start=False) as server:
    # What a kill leaves: a rewrite that was committed, one that was not, a stale derived file.
    roster = server.control("member").read_bytes()
    server.control("member.new").write_bytes(roster + b"carol@example.com ON \r\n")
    server.control("member.old").write_bytes(roster)
    server.control("digest.new").write_bytes(b"half@exam")
    server.control("active").write_bytes(b"alice@example.net\r\n")
    # And what deliveries left behind: long ago, just now, and a posting that is undistributed.
    for name, age in (("jnl/j.1", 2 * DAY), ("jnl/j.2", 60), ("jnl/7", 2 * DAY),
                      ("msg/cmdrpy.1", 2 * DAY), ("msg/cmdrpy.2", 60), ("msg/mldeny.1", 2 * DAY),
                      ("msg/mldeny.txt", 2 * DAY)):
        server.control(name).write_bytes(b"x\r\n")
        os.utime(server.control(name), (time.time() - age,) * 2)

    for name in ("spool/in/m.1", "spool/tmp/q.1", "outbox/.stage/1"):
        (server.data / name).parent.mkdir(parents=True, exist_ok=True)
        (server.data / name).write_bytes(b"half a mail")

    server.start()
    for folder in ("spool/in", "spool/tmp", "outbox/.stage"):
        equal(list((server.data / folder).iterdir()), [], folder)
    check(not server.control("member.new").exists(), "the committed rewrite is finished")
    check(not server.control("digest.new").exists(), "the other one is discarded")
    equal(server.control("digest").read_bytes(), b"", "digest")
    equal(server.control("active").read_bytes(),
          b"alice@example.net\r\nbob@example.jp\r\ncarol@example.com\r\n", "active")
    equal(sorted(path.name for path in server.control("jnl").iterdir()), ["7", "j.2"], "journal")
    equal(sorted(path.name for path in server.control("msg").iterdir()),
          ["cmdrpy.2", "mldeny.txt"], "work files and templates")
    check(b"archived but not distributed" in server.log.read_bytes(), "the log names it")
    server.accept(message())
    for member in (*MEMBERS, "carol@example.com"):
        server.received(member)

# A list may do without derived files: it archives, and its commands work.
for name in ("active", "digest"):
    with daemon(start=False) as server:
        server.control(name).unlink()
        server.start()
        server.accept(message())
        server.accept(message(number=2, body=b"# help\r\n"), to="mylist-ctl@example.jp")
        equal(len(server.archived()), 1, f"messages of a list without {name}")
