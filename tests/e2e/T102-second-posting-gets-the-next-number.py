from lib import daemon, distributed, equal, in_maildir, message

with daemon() as server:
    mails = [message(b"Mail %d" % n, number=n) for n in (1, 2, 3)]
    for mail in mails:
        server.accept(mail)
    wanted = [distributed(mail, n, b"Mail %d" % n) for n, mail in enumerate(mails, 1)]
    equal(server.archived(), wanted, "archive")
    equal(sorted(server.received("bob@example.jp", 3)), sorted(map(in_maildir, wanted)), "copies")
    next_number, records = server.index()
    equal(next_number, 4, "next number")
    equal([record[0] for record in records], [1, 2, 3], "numbers in the index")
    equal(server.control("dgtstat").read_bytes(), b"1-3", "digest status")
