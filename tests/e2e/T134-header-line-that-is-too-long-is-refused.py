from lib import check, daemon, equal, message, still_works

with daemon() as server:
    # 1,024 bytes with the line end are the most that a list takes.
    fits = b"X-Long: " + b"a" * (1022 - len("X-Long: ")) + b"\r\n"
    server.accept(message(extra=fits))
    code, text = server.post(message(extra=fits.replace(b"\r\n", b"a\r\n")))
    equal(code, 550, "a line of one byte more")
    check(b"509 char/line too long (header) [ml=mylist] strlen=1025" in text, f"answer {text!r}")
    code, _ = server.post(message(extra=b"X-Long: " + b"a" * 1000000 + b"\r\n"))
    equal(code, 550, "a line of a million bytes")
    equal(len(server.archived()), 1, "messages in the archive")
    still_works(server)
