"""Mixed line ends around the dot must not end the data: what follows would be taken as commands."""

from lib import LIST, check, daemon, equal, message, still_works

ROWS = [
    ("LF dot LF", b"\n.\n"),
    ("LF dot CR LF", b"\n.\r\n"),
    ("CR LF dot LF", b"\r\n.\n"),
    ("CR dot CR LF", b"\r.\r\n"),
    ("CR LF dot CR", b"\r\n.\r"),
]
SMUGGLED = b"MAIL FROM:<eve@example.com>\r\nRCPT TO:<mylist@example.jp>\r\nDATA\r\nforged\r\n"

with daemon() as server:
    for count, (label, end) in enumerate(ROWS, 1):
        client = server.raw()
        equal(client.begin([LIST]), [250], "recipient")
        body = b"text" + end + SMUGGLED
        equal(client.data(message(body=body, number=count) + b"\r\n.\r\n"), [250], label)
        equal(client.command("NOOP")[0], 250, f"{label}: the session is in step")
        client.close()
        equal(len(server.archived()), count, f"{label}: mails made of one")
        check(b"forged" in server.archived()[-1], f"{label}: the rest is part of the body")
    still_works(server)
