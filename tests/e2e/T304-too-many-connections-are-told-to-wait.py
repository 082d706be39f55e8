from lib import LIST, daemon, equal, message, wait_for

with daemon({"lmtp": {"sessions": 2}}) as server:
    def session():
        """A served connection; None while the one before it still counts."""
        client = server.raw(greet=False)
        return client if client.reply()[0] == 220 else None

    held = [wait_for("a place", session) for _ in range(2)]
    equal(server.raw(greet=False).reply()[0], 421, "greeting of one too many")
    for client in held:
        equal(client.command("QUIT")[0], 221, "QUIT")
    client = wait_for("a place to be free again", session)
    equal(client.command("LHLO client.example.net")[0], 250, "LHLO")
    equal(client.begin([LIST]), [250], "recipient")
    equal(client.data(message() + b".\r\n"), [250], "answer to a good mail")
