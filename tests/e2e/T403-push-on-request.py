"""mlistctl push makes the daemon send a digest; a mail from outside does not."""

import json
import subprocess

from lib import BUILD, LIST, check, daemon, equal, message, wait_for

with daemon(start=False) as server:
    server.ctl("member", "set", "digest", LIST, "bob@example.jp")
    server.start()
    asked = server.data / "digest/asked"
    equal((server.data / "digest").stat().st_mode & 0o777, 0o700, "mode of the directory")
    equal(asked.stat().st_mode & 0o777, 0o700, "mode of the requests' directory")

    server.accept(message())
    for sender in (b"owner-mylist@example.jp", b"MAILER-DAEMON@example.jp"):
        code, _ = server.post(message(body=b"# push\r\n", sender=sender),
                              to="mylist-ctl@example.jp", sender="owner-mylist@example.jp")
        equal(code, 550, "forged push")
    equal(server.control("dgtstat").read_bytes(), b"1", "digest status")

    equal(server.ctl("push", LIST), f"{LIST}: digest pushed\n", "answer")
    check(b"Hi all." in server.received("bob@example.jp")[0], "the digest")
    equal(server.control("dgtstat").read_bytes(), b"", "digest status")
    equal(json.loads(server.ctl("--json", "push", LIST)), {"list": LIST, "pushed": True}, "as JSON")
    server.received("bob@example.jp", 1)        # there was nothing to send

    server.ctl("push", "nobody@example.jp", status=67)
    server.ctl("push", "owner-mylist@example.jp", status=2)
    equal(list(asked.iterdir()), [], "requests")

    # Without a daemon the request waits, and says so.
    server.accept(message(number=2))
    server.stop()
    server.ctl("push", LIST, status=75)
    check("the request stays" in server.complaint, server.complaint)
    equal([file.name for file in asked.iterdir()], [LIST], "requests")
    server.start()
    server.received("bob@example.jp", 2)
    wait_for("the request to go", lambda: not any(asked.iterdir()))
