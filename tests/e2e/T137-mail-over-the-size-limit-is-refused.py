from lib import LIST, check, daemon, equal, message, still_works

with daemon({"lmtp": {"message_size": 10000}}) as server:
    client = server.raw()
    code, _ = client.command("MAIL FROM:<alice@example.net> SIZE=10001")
    equal(code, 552, "announced size over the limit")
    client.close()

    client = server.raw()
    equal(client.begin([LIST]), [250], "recipient")
    equal(client.data(message(body=b"x" * 78 + b"\r\n" + b"y" * 10000 + b"\r\n") + b".\r\n"),
          [552], "mail over the limit")
    client.close()
    equal(server.archived(), [], "archive")
    equal([name for name in server.files("spool") if "/in/" in name or "/out/" in name], [],
          "files left behind")
    still_works(server)
