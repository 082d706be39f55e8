from lib import daemon, equal, message, wait_for
from sink import Sink

sink = Sink({"bob@example.jp": ["450 busy", "250 ok"]})
with daemon({"relay": {"target": sink.target, "retry_min": 1, "retry_max": 2}}) as server:
    server.accept(message())
    wait_for("the mail to who was put off", lambda: sink.received_by("bob@example.jp"))
    wait_for("an empty queue", server.queue_is_empty)
    equal(len(sink.received_by("alice@example.net")), 1, "mails to who was served at once")
    equal(len(sink.received_by("bob@example.jp")), 1, "mails to who was put off")
