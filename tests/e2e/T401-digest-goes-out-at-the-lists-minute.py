import time

from clock import Clock, day_after_tomorrow, pushed_on
from lib import LIST, check, daemon, equal, message, wait_for

OTHER = "other@example.jp"

with daemon(start=False, lists=(LIST, OTHER), time="13:00") as server:
    for address in (LIST, OTHER):
        server.ctl("member", "add", address, "carol@example.com", "dan@example.org",
                   "erin@example.net")
        server.ctl("member", "set", "digest", address, "dan@example.org", "bob@example.jp")
        server.ctl("member", "set", "off", address, "carol@example.com")
    init = server.control("init", OTHER)
    init.write_bytes(init.read_bytes().replace(b"time=13:00", b"time=15:30"))

    clock = Clock(server)
    noon = day_after_tomorrow(12, 0)
    clock.set(noon)
    server.start()
    for address in (LIST, OTHER):   # of the day before, with nothing in it
        pushed_on(server, noon.date().fromordinal(noon.date().toordinal() - 1), address)
    equal(server.outbox("dan@example.org"), [], "no digest without postings")

    for number in (1, 2):
        server.accept(message(b"Posting %d" % number, number=number))
        server.accept(message(b"Elsewhere %d" % number, number=number), to=OTHER)
    server.received("alice@example.net", 4)
    equal(server.control("dgtstat").read_bytes(), b"1-2", "digest status")

    clock.set(day_after_tomorrow(13, 0))
    for member in ("dan@example.org", "bob@example.jp"):
        digest = server.received(member)[0]
        check(b"Posting 1" in digest and b"Posting 2" in digest, f"the digest: {digest!r}")
        check(digest.startswith(b"Return-Path: <owner-mylist@example.jp>\n"), digest[:200])
    pushed_on(server, noon.date(), LIST)
    equal(server.control("dgtstat").read_bytes(), b"", "digest status after the digest")
    equal(server.control("dgtstat", OTHER).read_bytes(), b"1-2", "the other list's")

    # Its own minute, and not the first list's again.
    server.accept(message(b"Posting 3", number=3))
    clock.set(day_after_tomorrow(15, 30))
    for member in ("dan@example.org", "bob@example.jp"):
        mails = server.received(member, 2)
        equal(sum(b"Elsewhere 2" in mail for mail in mails), 1, "the other list's digest")
    pushed_on(server, noon.date(), OTHER)
    equal(server.control("dgtstat").read_bytes(), b"3", "waits for tomorrow")

    # An hour back and over the minute once more: nothing.
    clock.set(day_after_tomorrow(12, 59, 58))
    server.accept(message(b"Posting 4", number=4))
    clock.set(day_after_tomorrow(16, 0))
    time.sleep(3)   # a wrong push would take no longer: the daemon looks every second
    wait_for("the queue to be empty", server.queue_is_empty)
    server.received("alice@example.net", 6)
    equal(server.control("dgtstat").read_bytes(), b"3-4", "no second digest")
    for member in ("dan@example.org", "bob@example.jp"):
        server.received(member, 2)
    equal(server.outbox("carol@example.com"), [], "a member who is off gets nothing")
    server.received("erin@example.net", 6)
