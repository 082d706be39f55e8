import re

from clock import Clock
from lib import check, daemon, equal

CAROL = "carol@example.com"


def command(line, number):
    return (b"From: carol@example.com\r\nTo: mylist-request@example.jp\r\nSubject: x\r\n"
            b"Message-ID: <c%d@example.com>\r\n\r\n" % number + line + b"\r\n")


with daemon(start=False, confirm="3") as server:
    clock = Clock(server)
    sent = 0

    def send(line):
        """The reply to one command."""
        global sent
        sent += 1
        server.accept(command(line, sent), to="mylist-request@example.jp", sender=CAROL)
        mails = server.received(CAROL, sent)
        return next(mail for mail in mails if b"<c%d@" % sent in mail)

    def id_in(reply, word):
        found = re.search(rb"\n# " + word + rb" ([0-9A-F]{16})\n", reply)
        check(found, f"the reply asks for confirmation: {reply!r}")
        return found.group(1)

    def is_member():
        return b"carol@example.com" in server.control("active").read_bytes()

    def pending():
        return server.control("confirm").read_bytes()

    # Subscribing: years are counted from 1900 and months from 0.
    clock.set("2026-11-15 09:24:05")
    server.start()
    word = id_in(send(b"# subscribe"), b"subscribe")
    equal(pending(), b"carol@example.com 0126/10/18:09:24 " + word + b"\r\n", "pending")
    check(not is_member(), "an unconfirmed subscription makes no member")
    equal(server.ctl("confirm", "list", "mylist@example.jp"),
          f"carol@example.com {word.decode()} until 2026-11-18 09:24\n", "confirm list")

    # A minute too late, the id is worth nothing and a new one is sent.
    clock.set("2026-11-18 09:25:02")
    second = id_in(send(b"# subscribe " + word), b"subscribe")
    check(not is_member(), "an expired id makes no member")
    equal(pending().splitlines()[1], b"carol@example.com 0126/10/21:09:25 " + second, "pending")
    equal(server.ctl("confirm", "clean", "mylist@example.jp"), "1 removed\n", "confirm clean")
    equal(pending(), b"carol@example.com 0126/10/21:09:25 " + second + b"\r\n", "pending, cleaned")

    # Someone else's id, or no id at all, brings the same one again.
    equal(id_in(send(b"# subscribe 0000000000000000"), b"subscribe"), second, "id")

    # Its last minute counts.
    clock.set("2026-11-21 09:25:40")
    reply = send(b"# subscribe " + second)
    check(b"Succeeded" in reply and is_member(), f"the last minute: {reply!r}")

    # Leaving goes the same way, here over the turn of the year.
    clock.set("2026-12-30 23:59:03")
    word = id_in(send(b"# unsubscribe"), b"unsubscribe")
    check(pending().endswith(b"carol@example.com 0127/00/02:23:59 " + word + b"\r\n"), pending())
    check(is_member(), "still a member")
    clock.set("2027-01-02 23:59:30")
    reply = send(b"# unsubscribe " + word)
    check(b"Succeeded" in reply and not is_member(), f"left: {reply!r}")
    equal(server.control("member").read_bytes(),
          b"alice@example.net ON \r\nbob@example.jp ON \r\n", "roster")
