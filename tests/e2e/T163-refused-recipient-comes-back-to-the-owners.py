from lib import check, daemon, equal, message, wait_for
from sink import Sink

sink = Sink({"bob@example.jp": "550 no such user"})
with daemon({"relay": {"target": sink.target, "retry_min": 1}}, start=False) as server:
    owners = server.data / "conf/lists/example.jp/mylist/owners"
    owners.parent.mkdir(parents=True)
    owners.write_text("boss@example.jp\n")
    server.start()
    server.accept(message())
    wait_for("the notice", lambda: sink.received_by("boss@example.jp"))
    wait_for("an empty queue", server.queue_is_empty)
    notice = sink.received_by("boss@example.jp")
    equal(len(notice), 1, "notices")
    check(b"bob@example.jp" in notice[0] and b"no such user" in notice[0],
          "the notice says who and why")
    equal([sender for sender, to, _ in sink.mails if "boss@example.jp" in to], [""],
          "envelope sender of the notice")
    equal(len(sink.received_by("alice@example.net")), 1, "mails to the others")
