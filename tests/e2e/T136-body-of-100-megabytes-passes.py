from lib import LIST, SANITIZED, check, daemon, distributed, equal, in_maildir, memory, message

LINE = b"0123456789abcdef" * 64 + b"\r\n"
BODY = LINE * (100 * 1024 * 1024 // len(LINE) + 1)
LIMIT = 20 * 1024        # KB: the mail must not be in them

with daemon({"lmtp": {"message_size": "120M"}}, members=("bob@example.jp",)) as server:
    mail = message(body=BODY)
    client = server.raw()
    equal(client.begin([LIST]), [250], "recipient")
    equal(client.data(mail + b".\r\n"), [250], "answer")
    client.close()
    wanted = distributed(mail, 1, b"Hello")
    equal(server.archived()[0], wanted, "archive")
    equal(server.received("bob@example.jp")[0], in_maildir(wanted), "copy")
    equal(server.index()[1][0][3], len(wanted), "size in the index")

    peak = memory(server.process.pid, "VmHWM")
    if SANITIZED:
        print(f"a peak of {peak} KB is not judged: a sanitizer's own memory is in it")
    else:
        print(f"peak: {peak} KB")
        check(peak < LIMIT, f"a peak of {peak} KB, wanted {LIMIT}")
