from lib import daemon, equal

COMMAND = (b"From: carol@example.com\r\nTo: mylist-ctl@example.jp\r\nSubject: x\r\n"
           b"Message-ID: <c1@example.com>\r\nDate: Sun, 15 Nov 2026 09:13:57 +0900\r\n\r\n"
           b"# subscribe\r\n")

with daemon(confirm="0") as server:
    server.accept(COMMAND, to="mylist-ctl@example.jp", sender="carol@example.com")
    head, body = server.received("carol@example.com")[0].split(b"\n\n", 1)
    for line in (b"From: mylist@example.jp", b"To: carol@example.com",
                 b"Subject: ML command [subscribe]: mylist", b"In-Reply-To: <c1@example.com>"):
        equal(line in head.split(b"\n"), True, f"{line} in the reply's header")
    equal(body, b"ML Command Reply:\n\n>>> subscribe\nSucceeded\n-\n\n", "reply")
    equal(server.control("active").read_bytes(),
          b"alice@example.net\r\nbob@example.jp\r\ncarol@example.com\r\n", "active")
    equal(server.archived(), [], "archive")
