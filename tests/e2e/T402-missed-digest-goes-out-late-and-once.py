import datetime

from clock import Clock, day_after_tomorrow, pushed_on
from lib import LIST, daemon, equal, message

with daemon(start=False, time="13:00") as server:
    server.ctl("member", "set", "digest", LIST, "bob@example.jp")
    clock = Clock(server)
    noon = day_after_tomorrow(12, 0)
    clock.set(noon)
    server.start()
    pushed_on(server, noon.date() - datetime.timedelta(days=1), LIST)
    server.accept(message())
    server.stop()

    # Down at the minute of three days: one digest when it is up again.
    clock.set(noon + datetime.timedelta(days=2, hours=8))
    server.start()
    digest = server.received("bob@example.jp")[0]
    equal(digest.count(b"Hi all."), 1, "the posting in the digest")
    today = noon.date() + datetime.timedelta(days=2)
    pushed_on(server, today, LIST)

    # Killed after that: it remembers.
    server.accept(message(number=2))
    server.kill()
    server.start()
    server.accept(message(number=3))
    server.received("alice@example.net", 3)
    equal(server.control("dgtstat").read_bytes(), b"2-3", "waits for the next day")
    server.received("bob@example.jp", 1)

    clock.set(noon + datetime.timedelta(days=3, hours=1))
    server.received("bob@example.jp", 2)
    pushed_on(server, today + datetime.timedelta(days=1), LIST)
