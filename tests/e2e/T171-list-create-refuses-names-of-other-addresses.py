from lib import check, daemon, equal

ROWS = [
    ("the owners of another list", "owner-mylist@example.jp"),
    ("the owners of another list, the other way", "mylist-owner@example.jp"),
    ("a control address", "mylist-ctl@example.jp"),
    ("the other control address", "mylist-request@example.jp"),
    ("a slash", "my/list@example.jp"),
    ("a blank", "my list@example.jp"),
    ("a way up", "..@example.jp"),
    ("a way up as the domain", "mylist@.."),
    ("33 characters", "a" * 33 + "@example.jp"),
    ("no domain", "mylist"),
    ("an empty name", "@example.jp"),
    ("a control character", "my\x07list@example.jp"),
    ("a letter beyond ASCII", "m\u00e9lange@example.jp"),
]

with daemon(lists=(), start=False) as server:
    for label, address in ROWS:
        server.ctl("list", "create", address, status=2)
        check(len(server.complaint.splitlines()) >= 2, f"{label}: no advice: {server.complaint}")
    server.ctl("list", "create", "mylist@example.jp", "--set=journal=many", status=2)
    server.ctl("list", "create", "mylist@example.jp", "--set=jurnal=5", status=2)
    equal(server.files(), [], "files")
