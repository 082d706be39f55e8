"""From its start to the copies in the mailboxes: a kill at each call that changes a file.

MLIST_DISTURB_STEP tries only every so many-th call.
"""

import os

from disturbed import CHANGES, Disturbed, check_everything, in_memory
from lib import SANITIZED, check, daemon, equal

STEP = int(os.environ.get("MLIST_DISTURB_STEP", 9 if SANITIZED else 1))

in_memory()
with daemon(start=False) as server:
    at, kills, archived_twice, sent_twice = 1, 0, 0, 0
    while True:
        run = Disturbed(server, at, "kill", CHANGES)
        if not run.happened:
            break
        equal(server.wait(), -9, f"call {at}")
        server.start()
        more_archived, more_sent = check_everything(server, at, run.answer == 250)
        server.kill()
        kills, at = kills + 1, at + STEP
        archived_twice, sent_twice = archived_twice + more_archived, sent_twice + more_sent
    equal(run.answer, 250, "undisturbed, the mail is answered")
    check(kills > 60 // STEP, f"only {kills} calls to be killed at")
    print(f"{kills} kills: {archived_twice} mails archived twice, {sent_twice} sent twice")
