import re

from lib import check, daemon, equal


def command(line, number):
    return (b"From: bob@example.jp\r\nTo: mylist-ctl@example.jp\r\nSubject: x\r\n"
            b"Message-ID: <c%d@example.jp>\r\nDate: Sun, 15 Nov 2026 09:13:57 +0900\r\n\r\n" % number
            + line + b"\r\n")


with daemon() as server:            # a new list asks for confirmation
    def send(line, number):
        server.accept(command(line, number), to="mylist-ctl@example.jp", sender="bob@example.jp")
        return max(server.received("bob@example.jp", number), key=lambda mail: b"<c%d@" % number in mail)

    reply = send(b"# unsubscribe", 1)
    check(b"bob@example.jp" in server.control("member").read_bytes(), "still a member")
    token = re.search(rb"unsubscribe +([0-9A-Za-z]{8,})", reply)
    check(token, f"the reply holds an id: {reply!r}")
    reply = send(b"# unsubscribe " + token.group(1), 2)
    check(b"Succeeded" in reply, f"{reply!r}")
    equal(server.control("active").read_bytes(), b"alice@example.net\r\n", "active")
