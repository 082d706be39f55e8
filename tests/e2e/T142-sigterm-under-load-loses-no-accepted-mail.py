import signal
import threading

from lib import LIST, daemon, equal, message, wait_for

OTHER = "other@example.org"
accepted = []
lock = threading.Lock()


def keep_posting(server, worker):
    for count in range(10000):
        to = (LIST, OTHER)[count % 2]
        token = b"<a%d@example.net>" % (worker * 100000 + count)
        try:
            code, _ = server.post(message(number=worker * 100000 + count), to=to)
        except Exception:       # the daemon has gone: what the test waits for
            return
        if code == 250:
            with lock:
                accepted.append((to, token))


with daemon(lists=(LIST, OTHER), journal=1000000) as server:     # keeps every mail
    workers = [threading.Thread(target=keep_posting, args=(server, n)) for n in range(6)]
    for worker in workers:
        worker.start()
    wait_for("the load", lambda: len(accepted) >= 60)
    server.signal(signal.SIGTERM)
    equal(server.wait(), 0, "exit status")
    for worker in workers:
        worker.join()

    server.start()              # whatever was queued leaves now
    for address in (LIST, OTHER):
        mails = server.archived(address)
        equal([b"X-Mail-Count: %06d\r\n" % n in mail for n, mail in enumerate(mails, 1)],
              [True] * len(mails), "numbers without gaps")
        tokens = [mail.split(b"Message-ID: ")[1].split(b"\r\n")[0] for mail in mails]
        missing = {token for to, token in accepted if to == address} - set(tokens)
        equal(missing, set(), f"accepted mails missing from {address}")
    total = len(server.archived(LIST)) + len(server.archived(OTHER))
    server.received("bob@example.jp", total)
