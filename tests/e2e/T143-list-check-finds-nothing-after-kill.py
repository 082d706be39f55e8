"""Killed at any moment, the daemon leaves lists that a new start puts in order."""

import threading

from lib import daemon, equal, message, wait_for


answered = []


def keep_posting(server):
    try:
        for count in range(10000):
            server.post(message(number=count))
            answered.append(count)
    except Exception:           # killed: what the test waits for
        pass


with daemon(journal=1000000) as server:      # keeps every mail
    for round in range(5):
        workers = [threading.Thread(target=keep_posting, args=(server,)) for _ in range(3)]
        for worker in workers:
            worker.start()
        enough = len(answered) + 5 + 4 * round
        wait_for("answers", lambda: len(answered) >= enough)
        server.kill()
        for worker in workers:
            worker.join()
        server.start()
        report = server.ctl("list", "check", "mylist@example.jp", status=None)
        problems = [line for line in report.splitlines()
                    if not line.startswith("    ") and "in order" not in line
                    and "archived but not distributed" not in line
                    and "is not in the index" not in line]
        equal(problems, [], f"round {round}")
    next_number, records = server.index()
    equal([record[0] for record in records], list(range(1, next_number)), "numbers without gaps")
