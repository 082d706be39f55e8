from lib import LIST, daemon, distributed, equal, in_maildir, message

with daemon() as server:
    mail = message(body=b"first\r\nsecond\r\n")
    client = server.raw()
    equal(client.begin([LIST]), [250], "recipient")
    wire = mail.replace(b"\r\n", b"\n")[:-1] + b"\r\n.\r\n"
    equal(client.data(wire), [250], "answer")
    client.close()
    equal(server.archived(), [distributed(mail, 1, b"Hello")], "archive")
    equal(server.received("bob@example.jp")[0], in_maildir(server.archived()[0]), "copy")
