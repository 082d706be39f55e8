"""A roster moved in, put on digests and moved out: each address has its answer, in order."""

from lib import LIST, daemon, equal

CROWD = [f"member{number}@example.com" for number in range(5000)]


def lines(addresses, said):
    return "".join(f"{address} {said}\n" for address in addresses)


def typed(addresses):
    return "\n".join(addresses).encode()


with daemon(members=("Member7@example.com",), start=False) as server:
    def files():
        return [server.control(name).read_bytes().decode() for name in
                ("member", "active", "digest")]

    equal(server.ctl("member", "add", LIST, "-", stdin=typed(CROWD)),
          lines(CROWD[:7], "added") + lines(CROWD[7:8], "is a member already") +
          lines(CROWD[8:], "added"), "answers")
    everyone = ["Member7@example.com", *CROWD[:7], *CROWD[8:]]
    equal(files(), ["".join(f"{address} ON \r\n" for address in everyone),
                    "".join(f"{address}\r\n" for address in everyone), ""], "members")

    equal(server.ctl("member", "set", "digest", LIST, "-", stdin=typed(CROWD)),
          lines(CROWD, "is digest"), "answers")
    equal(files(), ["".join(f"{address} DGT\r\n" for address in everyone), "",
                    "".join(f"{address}\r\n" for address in everyone)], "digest members")

    equal(server.ctl("member", "remove", LIST, "-", "nobody@example.jp", stdin=typed(CROWD[1:]),
                     status=1),
          lines(CROWD[1:], "removed") + "nobody@example.jp is no member\n", "answers")
    equal(files(), ["member0@example.com DGT\r\n", "", "member0@example.com\r\n"], "who is left")

    # A run that was cut short after the roster: the same again brings the other files after it.
    server.control("digest").write_bytes(b"")
    equal(server.ctl("member", "add", LIST, CROWD[0]), lines(CROWD[:1], "is a member already"),
          "the same again")
    equal(files(), ["member0@example.com DGT\r\n", "", "member0@example.com\r\n"], "who is left")
