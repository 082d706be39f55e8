from lib import MEMBERS, daemon, distributed, equal, message, wait_for
from sink import Sink

sink = Sink()
with daemon({"relay": {"target": sink.target}}) as server:
    mail = message(body=b"text\r\n.\r\n.dots\r\n")
    server.accept(mail)
    wait_for("the mail at the relay", lambda: sink.mails)
    wait_for("an empty queue", server.queue_is_empty)
    equal(len(sink.mails), 1, "mails at the relay")
    sender, recipients, data = sink.mails[0]
    equal(sender, "owner-mylist@example.jp", "envelope sender")
    equal(sorted(recipients), sorted(MEMBERS), "recipients")
    equal(data, distributed(mail, 1, b"Hello"), "the mail")
