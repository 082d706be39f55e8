from lib import LIST, daemon, equal, message, still_works

ROWS = [
    ("the empty sender", "", LIST),
    ("the empty sender to the control address", "", "mylist-ctl@example.jp"),
    ("a mailer daemon", "MAILER-DAEMON@mx.example.net", LIST),
    ("a mailer daemon in small letters", "mailer-daemon@mx.example.net", LIST),
]

with daemon() as server:
    for label, sender, to in ROWS:
        code, _ = server.post(message(), to=to, sender=sender)
        equal(code, 550, label)
    equal(server.archived(), [], "archive")
    equal(server.files("outbox"), [], "mails that left")
    still_works(server)
