import time

from lib import LIST, check, daemon, equal, message, still_works, wait_for

with daemon({"lmtp": {"timeout": 2, "data_timeout": 5}}) as server:
    started = time.monotonic()
    silent = server.raw()
    equal(silent.closed_by_server(), 421, "last word to a silent client")
    check(time.monotonic() - started >= 2, "not before the configured time")

    stalled = server.raw()
    equal(stalled.begin([LIST]), [250], "recipient")
    equal(stalled.command("DATA")[0], 354, "DATA")
    stalled.send(message())
    code = stalled.closed_by_server()
    check(code is None or 400 <= code < 500, f"a client that stalls in its data hears {code}")

    # A byte now and then does not keep a session for ever.
    dripping = server.raw()
    equal(dripping.begin([LIST]), [250], "recipient")
    equal(dripping.command("DATA")[0], 354, "DATA")

    def sent_away():
        try:
            dripping.send(b"x")
        except OSError:
            return True
        return False

    wait_for("a client that drips to be sent away", sent_away)
    equal(server.archived(), [], "archive")
    still_works(server)
