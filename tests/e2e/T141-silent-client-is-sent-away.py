import time

from lib import LIST, check, daemon, equal, message, still_works

with daemon({"lmtp": {"timeout": 2, "data_timeout": 5}}) as server:
    silent = server.raw()
    started = time.monotonic()
    equal(silent.closed_by_server(), 421, "last word to a silent client")
    check(1 < time.monotonic() - started < 20, "after the configured time")

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
    started = time.monotonic()
    try:
        while time.monotonic() - started < 30:
            dripping.send(b"x")
            time.sleep(0.5)
    except OSError:
        pass
    check(time.monotonic() - started < 25, "a client that drips is sent away")
    equal(server.archived(), [], "archive")
    still_works(server)
