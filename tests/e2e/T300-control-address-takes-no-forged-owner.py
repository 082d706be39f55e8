from lib import daemon, equal, message, still_works

CONTROL = "mylist-ctl@example.jp"
PUSH = b"# push\r\n"

ROWS = [
    ("the owner's address", b"owner-mylist@example.jp"),
    ("the same in capitals, with a name", b"Boss <OWNER-MyList@Example.JP>"),
    ("an address that only begins so", b"owner-mylist2@evil.example"),
    ("one hidden behind another", b'"<alice@example.net>" <owner-mylist@evil.example>'),
    ("one cut by a comment", b"ow(x)ner-mylist@example.jp"),
    ("one cut by folding", b"owner-\r\n\tmylist@example.jp"),
    ("a mailer daemon", b"Mail System <MAILER-DAEMON@mx.example.net>"),
]

with daemon() as server:
    server.accept(message())
    server.received("bob@example.jp")
    status = server.control("dgtstat").read_bytes()
    for label, sender in ROWS:
        code, _ = server.post(message(body=PUSH, sender=sender), to=CONTROL)
        equal(code, 550, label)
    equal(server.control("dgtstat").read_bytes(), status, "digest status")
    still_works(server)
