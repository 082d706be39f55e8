from lib import daemon, equal, message, still_works

with daemon() as server:
    before = server.files("control", "archive")
    for address in ("nobody@example.jp", "mylist@example.org", "nobody-ctl@example.jp",
                    "owner-nobody@example.jp"):
        code, _ = server.post(message(), to=address)
        equal(code, 550, f"answer to {address}")
    equal(server.files("control", "archive"), before, "files")
    still_works(server)
