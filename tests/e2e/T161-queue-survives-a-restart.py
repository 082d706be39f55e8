import socket

from lib import MEMBERS, check, daemon, distributed, equal, message, wait_for
from sink import Sink

# A port where nobody listens: bound, but not listening, so that it stays ours.
closed = socket.socket()
closed.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
closed.bind(("127.0.0.1", 0))
port = closed.getsockname()[1]
relay = {"target": f"smtp:127.0.0.1:{port}", "retry_min": 1, "retry_max": 2}

with daemon({"relay": relay}) as server:
    mails = [message(b"Mail %d" % n, number=n) for n in (1, 2, 3)]
    for mail in mails:
        server.accept(mail)
    check(not server.queue_is_empty(), "the mails wait")
    server.kill()

    closed.close()
    sink = Sink(port=port)
    server.start()
    wanted = [distributed(mail, n, b"Mail %d" % n) for n, mail in enumerate(mails, 1)]
    for member in MEMBERS:
        wait_for(f"three mails to {member}", lambda: len(sink.received_by(member)) >= 3)
        equal(sorted(sink.received_by(member)), sorted(wanted), f"mails to {member}")
    wait_for("an empty queue", server.queue_is_empty)
