from lib import check, daemon, equal, message

OWNERS = ("boss@example.jp", "deputy@example.net")

with daemon() as server:
    equal(server.post(message(), to="owner-mylist@example.jp")[0], 550, "without owners")
    owners = server.data / "conf/lists/example.jp/mylist/owners"
    owners.parent.mkdir(parents=True, exist_ok=True)
    owners.write_text("".join(f"{owner}\n" for owner in OWNERS))

    server.accept(message(b"To the boss"), to="mylist-owner@example.jp")
    server.accept(message(b"Returned", number=2), to="owner-mylist@example.jp", sender="")
    for owner in OWNERS:
        mails = server.received(owner, 2)
        check(any(b"Subject: To the boss" in mail for mail in mails), f"{owner} has the mail")
        check(any(b"Subject: Returned" in mail for mail in mails), f"{owner} has the bounce")
    equal(server.archived(), [], "archive")
