from lib import LIST, daemon, distributed, equal, in_maildir, message

LINE = b"0123456789abcdef" * 64 + b"\r\n"
BODY = LINE * (100 * 1024 * 1024 // len(LINE) + 1)

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

    # The daemon's memory must not have grown by the mail.
    status = open(f"/proc/{server.process.pid}/status").read()
    peak = int(next(line for line in status.splitlines() if line.startswith("VmHWM")).split()[1])
    import os
    if "asan" not in os.environ.get("MLIST_BUILD", ""):
        equal(peak < 80 * 1024, True, f"peak memory of {peak} KB under 80 MB")
