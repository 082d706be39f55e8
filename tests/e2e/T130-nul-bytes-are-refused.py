from lib import LIST, check, daemon, equal, message, still_works

ROWS = [
    ("in the body", message(body=b"a\0b\r\n")),
    ("in the header", message(subject=b"a\0b")),
    ("as all of the mail", b"\0" * 1000 + b"\r\n"),
]

with daemon() as server:
    for label, mail in ROWS:
        client = server.raw()
        equal(client.begin([LIST]), [250], "recipient")
        code = client.data(mail + b".\r\n")[0]
        check(500 <= code < 600, f"NUL {label}: answered {code}")
        client.close()
    equal(server.archived(), [], "archive")
    still_works(server)
