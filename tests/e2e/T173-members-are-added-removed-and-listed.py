import json

from lib import LIST, check, daemon, equal

with daemon(members=(), start=False) as server:
    def active():
        return server.control("active").read_bytes()

    equal(server.ctl("member", "add", LIST, "alice@example.net", "Bob@Example.JP"),
          "alice@example.net added\nBob@Example.JP added\n", "answer")
    equal(active(), b"alice@example.net\r\nBob@Example.JP\r\n", "active")
    equal(server.control("member").read_bytes(),
          b"alice@example.net ON \r\nBob@Example.JP ON \r\n", "member")
    equal(server.ctl("member", "add", LIST, "bob@example.jp"),
          "bob@example.jp is a member already\n", "a member again")

    equal(server.ctl("member", "add", LIST, "-", stdin=b"carol@example.com\r\n\n dan@example.org \n"),
          "carol@example.com added\ndan@example.org added\n", "members from standard input")
    equal(server.ctl("member", "list", LIST),
          "alice@example.net on\nBob@Example.JP on\ncarol@example.com on\ndan@example.org on\n",
          "list")
    equal(json.loads(server.ctl("--json", "member", "list", LIST))[1],
          {"address": "Bob@Example.JP", "status": "on"}, "list as JSON")

    equal(server.ctl("member", "remove", LIST, "ALICE@example.net", "nobody@example.jp", status=1),
          "ALICE@example.net removed\nnobody@example.jp is no member\n", "removal")
    equal(active(), b"Bob@Example.JP\r\ncarol@example.com\r\ndan@example.org\r\n", "active")

    # One bad address and nothing is added.
    before = active()
    for bad in ("no address", "a@b@c", "a b@example.jp", "@example.jp", "x@", "-x@example.jp",
                "a\tb@example.jp", "<a@example.jp>", "a" * 250 + "@example.jp", LIST,
                "mylist-ctl@example.jp", "owner-mylist@example.jp"):
        server.ctl("member", "add", LIST, "eve@example.com", "-", stdin=bad.encode(), status=65)
        check("nobody was added" in server.complaint, server.complaint)
    equal(active(), before, "active after refused additions")

    server.ctl("member", "add", "nobody@example.jp", "a@example.jp", status=67)
    check("list create" in server.complaint, server.complaint)
    check(not server.control(address="nobody@example.jp").exists(), "nothing is made for a typing error")
