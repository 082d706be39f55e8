from lib import check, daemon, equal, still_works

ROWS = [
    ("a slash in the name", "my/list@example.jp"),
    ("a way up in the name", "../mylist@example.jp"),
    ("only a way up", "..@example.jp"),
    ("a dot", ".@example.jp"),
    ("a slash in the domain", "mylist@example.jp/mylist"),
    ("a way up as the domain", "mylist@.."),
    ("an empty name", "@example.jp"),
    ("an empty domain", "mylist@"),
    ("no domain", "mylist"),
    ("a control character", "my\x01list@example.jp"),
    ("a delete character", "my\x7flist@example.jp"),
    ("a format", "%s%n@example.jp"),
    ("a name of 33 characters", "a" * 33 + "@example.jp"),
    ("a name of 60,000 characters", "a" * 60000 + "@example.jp"),
    ("two at-signs", "mylist@example.jp@example.jp"),
]

with daemon() as server:
    before = server.files("control", "archive")
    for label, address in ROWS:
        client = server.raw()
        equal(client.command("MAIL FROM:<alice@example.net>")[0], 250, "MAIL")
        code, text = client.command(f"RCPT TO:<{address}>")
        check(500 <= code < 600, f"{label}: answered {code} {text}")
        client.close()
    equal(server.files("control", "archive"), before, "files")
    still_works(server)
