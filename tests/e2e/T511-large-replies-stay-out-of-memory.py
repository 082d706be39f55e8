"""A "get" of 50 MB and a "member" of 10,000 members pass through a daemon that does not grow."""

from lib import (LIST, SANITIZED, check, daemon, equal, forget_peak, memory, message, wait_for)

LINE = b"0123456789abcdef" * 64 + b"\r\n"
BODY = LINE * (50 * 1024 * 1024 // len(LINE) + 1)
READER = "reader@example.net"       # the only one who gets postings and replies
MEMBERS = 10000
LIMIT = 8 * 1024                    # KB that the daemon may grow by meanwhile


def command(server, line, number):
    """The reply; what the daemon's memory had to grow by."""
    before = len(server.outbox(READER))
    forget_peak(server.process.pid)
    start = memory(server.process.pid)
    server.accept(message(body=line + b"\r\n", sender=READER.encode(), number=number),
                  to="mylist-ctl@example.jp", sender=READER)
    mails = server.received(READER, before + 1)
    wait_for("an empty queue", server.queue_is_empty)
    return mails, memory(server.process.pid, "VmHWM") - start


def judge(what, growth):
    print(f"{what}: {growth} KB")
    if SANITIZED:
        print("not judged: a sanitizer's own memory is in it")
    else:
        check(growth < LIMIT, f"{what}: grew by {growth} KB, wanted {LIMIT}")


with daemon({"lmtp": {"message_size": "120M"}}, members=(READER,), maxmsgsize=0) as server:
    server.accept(message(body=BODY))
    server.received(READER)

    mails, growth = command(server, b"# get 1", 2)
    check(any(BODY.replace(b"\r\n", b"\n") in mail and b"get 1\nSucceeded" in mail
              for mail in mails), "the reply has the whole mail")
    judge("get of 50 MB", growth)

    crowd = [f"member-{number:05}@some-domain.example.com" for number in range(MEMBERS)]
    roster = server.control("member")
    roster.write_bytes(roster.read_bytes() +
                       b"".join(address.encode() + b" OFF\r\n" for address in crowd))
    mails, growth = command(server, b"# member", 3)
    reply = min(mails, key=len)
    equal([address for address in crowd if address.encode() not in reply], [], "members left out")
    judge(f"member of {MEMBERS}", growth)
