from lib import check, daemon, equal, message, still_works, wait_for
from sink import Sink

for behaviour in ("garbage", "silent", "drop", "drop-after-data"):
    wrong = Sink(behaviour=behaviour)
    relay = {"target": wrong.target, "retry_min": 1, "retry_max": 1, "timeout": 2}
    with daemon({"relay": relay}) as server:
        server.accept(message())
        wait_for(f"{behaviour}: two tries", lambda: wrong.connections >= 2)
        check(not server.queue_is_empty(), f"{behaviour}: the mail waits")
        still_works(server)

        port = wrong.port
        wrong.close()
        good = Sink(port=port)
        wait_for(f"{behaviour}: the mail", lambda: len(good.received_by("bob@example.jp")) >= 2)
        wait_for(f"{behaviour}: an empty queue", server.queue_is_empty)
        equal(len(good.received_by("bob@example.jp")), 2, f"{behaviour}: mails")
        good.close()
