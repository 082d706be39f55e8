from lib import daemon, distributed, equal, message

with daemon() as server:
    mail = message(body=b".\r\n..\r\n...three\r\n.one\r\nend\r\n")
    server.accept(mail)
    equal(server.archived(), [distributed(mail, 1, b"Hello")], "archive")
