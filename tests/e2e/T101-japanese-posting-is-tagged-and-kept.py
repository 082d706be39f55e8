from lib import MEMBERS, daemon, distributed, equal, in_maildir, message

TEST = b"=?ISO-2022-JP?B?GyRCJUYlOSVIGyhC?="      # "tesuto" in katakana
BODY = b"\x1b$BK\\J8$G$9!#\x1b(B\r\n"

with daemon() as server:
    mail = message(TEST, BODY, extra=b"Content-Transfer-Encoding: 7bit\r\n").replace(
        b"charset=us-ascii", b"charset=iso-2022-jp")
    server.accept(mail)
    wanted = distributed(mail, 1, TEST)
    for member in MEMBERS:
        equal(server.received(member)[0], in_maildir(wanted), f"copy of {member}")
    equal(server.archived(), [wanted], "archive")

    # An answer to it keeps one tag only, with its own number.
    answer = mail.replace(b"Subject: ", b"Subject: Re: [mylist:1] ")
    server.accept(answer)
    equal(server.archived()[1], distributed(mail, 2, b"Re: " + TEST), "answer in the archive")
