"""Leaving succeeds although "active" cannot follow; it has followed before the next mail."""

from lib import LIST, MEMBERS, check, daemon, equal, message

with daemon(confirm=0) as server:
    (server.control() / "active.new").mkdir()
    server.accept(message(body=b"# unsubscribe\r\n"), to="mylist-ctl@example.jp")
    check(MEMBERS[0].encode() not in server.control("member").read_bytes(), "she has left")
    check(MEMBERS[0].encode() in server.control("active").read_bytes(), "active was held up")
    (server.control() / "active.new").rmdir()
    server.accept(message(number=2, sender=MEMBERS[1].encode()))
    server.received(MEMBERS[1])
    equal([mail for mail in server.outbox(MEMBERS[0]) if b"X-Mail-Count" in mail], [],
          f"postings to {MEMBERS[0]}, who has left {LIST}")
