from lib import MEMBERS, daemon, distributed, equal, in_maildir, message

with daemon() as server:
    mail = message()
    server.accept(mail)
    wanted = distributed(mail, 1, b"Hello")

    for member in MEMBERS:
        equal(server.received(member)[0], in_maildir(wanted), f"copy of {member}")
    equal(server.archived(), [wanted], "archive")
    header_size = wanted.index(b"\r\n\r\n") + 4
    equal(server.index(), (2, [(1, 32, header_size, len(wanted))]), "index")
    equal(server.box("#mix").stat().st_size, 32, "size of the index")
    equal(server.control("dgtstat").read_bytes(), b"1", "digest status")
    equal(list(server.control("jnl").iterdir()), [], "journal directory")
