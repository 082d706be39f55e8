from lib import check, daemon, equal, message

HEAD = message().split(b"\r\n\r\n")[0] + b"\r\n"

with daemon() as server:
    server.accept(HEAD)
    check(server.archived()[0].endswith(b"Subject: [mylist:1] Hello\r\n\r\n"),
          "a header alone is a mail with an empty body")
    server.accept(HEAD + b"no header line\r\n")
    check(server.archived()[1].endswith(b"Subject: [mylist:2] Hello\r\n\r\nno header line\r\n"),
          "what is no header line begins the body")
    equal(len(server.archived()), 2, "messages in the archive")
