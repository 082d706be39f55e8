"""The size limit is enforced where the machine's local configuration says so; that file has one
place, so the daemon runs with a private view of it."""

import shutil
import subprocess

from lib import check, daemon, equal, message, skip

CONFIGURE = ("mount -t tmpfs none /opt && mkdir -p /opt/qelv/mail && "
             "echo ml_maxmsgsize=1 >/opt/qelv/mail/local.conf")

if not shutil.which("unshare") or subprocess.run(
        ["unshare", "-m", "sh", "-c", CONFIGURE], capture_output=True).returncode != 0:
    skip("no private mounts here")

with daemon(start=False, maxmsgsize="1") as server:
    server.start(prefix=("unshare", "-m", "sh", "-c", CONFIGURE + ' && exec "$0" "$@"'))
    server.accept(message(b"Big", b"x" * 70 + b"\r\n" + b"y" * 1000 + b"\r\n"))
    notice = server.received("alice@example.net")[0]
    check(b"Max message size over (1KB)" in notice, "the notice names the limit")
    equal(server.archived(), [], "archive")
    equal(server.outbox("bob@example.jp"), [], "mails to a member")

    server.accept(message(b"Small"))
    equal(len(server.archived()), 1, "messages in the archive")
