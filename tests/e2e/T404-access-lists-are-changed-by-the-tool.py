import json

from lib import LIST, check, daemon, equal, message

with daemon(vstrml="deny", confirm="0") as server:
    # grant: without entries every member may post.
    server.accept(message())
    equal(server.ctl("grant", "list", LIST), "", "no entries")
    equal(server.ctl("grant", "add", LIST, "Boss@Example.JP", "boss@example.jp"),
          "Boss@Example.JP added\nboss@example.jp is there already\n", "answer")
    check("only the granted addresses may post" in server.complaint, server.complaint)
    equal(server.control("grant").read_bytes(), b"Boss@Example.JP\r\n", "grant")
    server.accept(message(number=2))                     # denied by a notice
    server.accept(message(number=3, sender=b"boss@example.jp"))
    equal(len(server.archived()), 2, "archived postings")

    equal(json.loads(server.ctl("--json", "grant", "list", LIST)), ["Boss@Example.JP"], "as JSON")
    equal(json.loads(server.ctl("--json", "grant", "remove", LIST, "boss@example.jp", "x@y",
                                status=1)),
          [{"entry": "boss@example.jp", "changed": True}, {"entry": "x@y", "changed": False}],
          "removal as JSON")
    equal(server.control("grant").read_bytes(), b"", "grant")
    server.accept(message(number=4))
    equal(len(server.archived()), 3, "archived postings")

    # subscribe-domain
    def subscribe(address):
        server.accept(b"From: " + address + b"\r\nTo: mylist-ctl@example.jp\r\n"
                      b"Message-ID: <s@x>\r\n\r\n# subscribe\r\n", to="mylist-ctl@example.jp")
        return address in server.control("member").read_bytes()

    equal(server.ctl("subscribe-domain", "add", LIST, "-", stdin=b"example.jp\n*.example.net\n"),
          "example.jp added\n*.example.net added\n", "answer")
    check(subscribe(b"dan@EXAMPLE.jp"), "the domain in capitals")
    check(subscribe(b"dan@lists.example.net"), "a domain below")
    check(not subscribe(b"dan@example.org"), "another domain")
    equal(server.ctl("subscribe-domain", "list", LIST), "example.jp\n*.example.net\n", "list")
    equal(server.ctl("subscribe-domain", "remove", LIST, "example.jp", "*.example.net"),
          "example.jp removed\n*.example.net removed\n", "answer")
    check("everybody may subscribe" in server.complaint, server.complaint)
    check(subscribe(b"dan@example.org"), "any domain")

    # What is no entry changes nothing, whatever stands beside it.
    for verb, good, rows in (
            ("grant", "eve@example.com", ("no address", "a@b@c", "*@example.jp", "a\nb@example.jp",
                                          "example.jp")),
            ("subscribe-domain", "example.com", ("*", "a@example.jp", "example .jp", "..",
                                                 "example.jp\n*.jp", "*example jp"))):
        for bad in rows:
            server.ctl(verb, "add", LIST, good, bad, status=65)
            check("nothing was added" in server.complaint, server.complaint)
    equal(server.control("grant").read_bytes() + server.control("subscribe").read_bytes(), b"",
          "both files")

    # members' status
    equal(server.ctl("member", "set", "digest", LIST, "ALICE@example.net"),
          "ALICE@example.net is digest\n", "answer")
    equal(server.control("digest").read_bytes(), b"alice@example.net\r\n", "digest")
    equal(server.ctl("member", "set", "off", LIST, "alice@example.net", "x@y", status=1),
          "alice@example.net is off\nx@y is no member\n", "answer")
    server.ctl("member", "set", "on", LIST, "alice@example.net")
    check(b"alice@example.net\r\n" in server.control("active").read_bytes(), "active")
    server.ctl("member", "set", "away", LIST, "alice@example.net", status=2)

    for words in (("grant", "list"), ("subscribe-domain", "list"), ("confirm", "list"),
                  ("confirm", "clean")):
        server.ctl(*words, "nobody@example.jp", status=67)
