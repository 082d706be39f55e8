from lib import LIST, daemon, equal, message, still_works, wait_for

with daemon() as server:
    for wire in (b"", message(), message()[:-2], message() + b".\r", message() + b"."):
        client = server.raw()
        equal(client.begin([LIST]), [250], "recipient")
        equal(client.command("DATA")[0], 354, "DATA")
        client.send(wire)
        client.close()
    wait_for("half mails to be removed", lambda: server.files("spool/in") == [])
    equal(server.archived(), [], "archive")
    still_works(server)
