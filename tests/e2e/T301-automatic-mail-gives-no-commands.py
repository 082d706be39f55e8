from lib import MEMBERS, check, daemon, equal, message, still_works, wait_for

ROWS = [
    ("an answer of a program", b"Auto-Submitted: auto-replied\r\n"),
    ("a notice of a program", b"Auto-Submitted: auto-generated (by cron)\r\n"),
    ("bulk mail", b"Precedence: bulk\r\n"),
    ("junk mail", b"Precedence: JUNK\r\n"),
    ("a person's mail", b"Auto-Submitted: no\r\n"),
]

with daemon() as server:
    for number, (label, header) in enumerate(ROWS, 1):
        mail = message(label.encode(), b"# help\r\n", number=number, extra=header)
        server.accept(mail, to="mylist-request@example.jp")
    answers = server.received(MEMBERS[0])
    wait_for("an empty queue", server.queue_is_empty)
    equal(len(server.outbox(MEMBERS[0])), 1, "answers")
    check(b"a5@example.net" in answers[0], "the person is the one who was answered")
    still_works(server)
