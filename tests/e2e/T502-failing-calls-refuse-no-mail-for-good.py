"""From its start to the copies in the mailboxes: each call fails, with one error or another.

MLIST_DISTURB_STEP tries only every so many-th call.
"""

import errno
import os

from disturbed import EVERY, Disturbed, check_everything, in_memory
from lib import SANITIZED, check, daemon, equal

STEP = int(os.environ.get("MLIST_DISTURB_STEP", 17 if SANITIZED else 4))
ERRORS = (errno.ENOSPC, errno.EIO, errno.EDQUOT, errno.EMFILE, errno.ENOMEM, errno.EINTR, "short")

in_memory()
with daemon({"relay": {"retry_min": 1, "retry_max": 1}}, start=False) as server:
    at, tries, refused_start, later = 1, 0, 0, 0
    while True:
        run = Disturbed(server, at, ERRORS[at // STEP % len(ERRORS)], EVERY)
        if not run.happened:
            break
        if run.ended:               # it cannot start, says so, and nothing is harmed
            check(server.wait() in (71, 73, 74), f"call {at}: exit status")
            check(b"mlistd: " in server.log.read_bytes(), f"call {at}: it ended without a word")
            refused_start += 1
        else:
            check(run.answer in (250, 451, 452), f"call {at}: answered with {run.answer}")
            later += run.answer != 250
            server.kill()
        server.start()
        check_everything(server, at, run.answer == 250)
        server.kill()
        tries, at = tries + 1, at + STEP
    equal(run.answer, 250, "undisturbed, the mail is answered")
    check(tries > 100 // STEP, f"only {tries} calls to fail")
    print(f"{tries} failing calls: {later} mails put off, {refused_start} starts given up")
