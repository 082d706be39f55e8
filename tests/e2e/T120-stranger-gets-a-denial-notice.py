from lib import daemon, check, equal, message

with daemon(vstrml="deny") as server:
    stranger = message(sender=b"carol@example.com")
    server.accept(stranger, sender="carol@example.com")
    notice = server.received("carol@example.com")[0]
    check(b"\nTo: carol@example.com\n" in notice, "the notice is addressed to the stranger")
    equal(server.archived(), [], "archive")
    for member in ("alice@example.net", "bob@example.jp"):
        equal(server.outbox(member), [], f"mails to {member}")

    # A refused posting takes no number.
    server.accept(message())
    check(b"X-Mail-Count: 000001\r\n" in server.archived()[0], "a member's posting is number 1")
