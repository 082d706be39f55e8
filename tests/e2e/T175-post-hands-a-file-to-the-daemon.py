import json

from lib import LIST, check, daemon, distributed, equal, message

with daemon() as server:
    file = server.root / "mail"
    mail = message(body=b"text\r\n.\r\n.dot\r\nend\r\n")
    wanted = []

    def posted(label, content, *options, subject=b"Hello"):
        file.write_bytes(content)
        answer = server.ctl("post", file, "--to", LIST, *options)
        check(answer.startswith(f"{LIST}: 250 "), f"{label}: {answer}")
        wanted.append(distributed(mail, len(wanted) + 1, subject))
        equal(server.archived()[-1], wanted[-1], label)

    posted("CR LF line ends", mail)
    posted("LF line ends", mail.replace(b"\r\n", b"\n"))
    posted("no last line end", mail[:-2])
    posted("a mailbox file", b"From alice Sun Nov 15 09:13:57 2026\n" + mail.replace(b"\r\n", b"\n"))
    posted("a sender of its own", mail, "--from", "someone@example.org")

    answer = json.loads(server.ctl("--json", "post", file, "--to", LIST))
    equal(answer["code"], 250, "code in JSON")
    server.ctl("post", "-", "--to", LIST, stdin=mail)
    equal(len(server.archived()), 7, "messages in the archive")

    server.ctl("post", file, "--to", "nobody@example.jp", status=69)
    server.ctl("post", server.root / "missing", "--to", LIST, status=66)
    server.ctl("post", file, "--to", "nonsense", status=2)
    server.ctl("post", file, status=2)
    server.ctl("post", file, "--to", LIST, "--from", "", status=69)
    file.write_bytes(b"")
    server.ctl("post", file, "--to", LIST, status=65)
    file.write_bytes(b"Subject: a\n\n\0\n")
    server.ctl("post", file, "--to", LIST, status=65)
    equal(len(server.archived()), 7, "messages in the archive")

    file.write_bytes(mail)
    server.stop()
    server.ctl("post", file, "--to", LIST, status=75)
    check("mlistd" in server.complaint, server.complaint)
