"""A daemon whose n-th file system call kills it or fails, from its start to the copies in the
mailboxes; it starts on a list that a crash left, so that its check has something to do."""

import os
import shutil
import struct
import tempfile

from lib import BUILD, LIST, MEMBERS, RawClient, check, equal, message, wait_for

CHANGES = ",make,write,size,name,time,"
EVERY = ",make,open,read,write,size,sync,name,time,lock,"
MAIL = message()


def in_memory():
    """The process dies, not the machine: what a sync costs need not be paid."""
    if os.access("/dev/shm", os.W_OK):
        tempfile.tempdir = "/dev/shm"


def leave_as_after_a_crash(server):
    roster = server.control("member").read_bytes()
    server.control("member.new").write_bytes(roster + b"carol@example.com DGT\r\n")
    server.control("member.old").write_bytes(roster)
    server.control("grant.new").write_bytes(b"half an addr")
    server.control("active").write_bytes(b"alice@example.net\r\n")
    index = server.box("#mix").read_bytes()
    server.box("#mix.new").write_bytes(index)
    server.box("#mix.old").write_bytes(index)
    server.box("#mix").write_bytes(index[:7])
    (server.data / "spool/in").mkdir(parents=True)
    (server.data / "spool/in/m.1").write_bytes(b"half a mail")


def start_again(server):
    """Everything as it was before the first start."""
    before = server.root / "before"
    if not before.exists():
        leave_as_after_a_crash(server)
        shutil.copytree(server.data, before)
    shutil.rmtree(server.data)
    shutil.copytree(before, server.data)


class Disturbed:
    """Starts the daemon and posts while it lasts.  `ended` it has by itself, `answer` is the last
    reply or None, `happened` is false once there is no call of that number."""

    def __init__(self, server, at, harm, calls):
        self.server = server
        start_again(server)
        count = server.root / "count"
        count.write_bytes(bytes(8))
        usual = server.environment
        server.environment = {
            **usual, "LD_PRELOAD": str(BUILD / "tests/disturbed_calls.so"),
            "DISTURB_BELOW": f"{server.data}/", "DISTURB_SPARED": "/init", "DISTURB_CALLS": calls,
            "DISTURB_AT": str(at), "DISTURB_HARM": str(harm), "DISTURB_COUNT": str(count),
            "ASAN_OPTIONS": "verify_asan_link_order=0:" + usual.get("ASAN_OPTIONS", "")}
        server.launch()
        server.environment = usual
        self.answer = None
        client = wait_for("mlistd to serve or to die", self.client)
        if client is not True:
            self.post(client)
            client.close()
        # A call that fails may be the one without which nobody sees that all is done.
        failed = lambda: harm != "kill" and self.calls(count) >= at
        if self.answer == 250:
            wait_for("the last call, or mlistd to die",
                     lambda: self.over() or failed() or self.is_done())
        self.ended = self.over()
        self.happened = self.calls(count) >= at

    @staticmethod
    def calls(count):
        return struct.unpack("@q", count.read_bytes())[0]

    def over(self):
        return self.server.process.poll() is not None

    def is_done(self):
        """The mail has left, and the session that took it has cleared away: nothing is to come."""
        return (self.server.queue_is_empty() and self.server.outbox(MEMBERS[0])
                and not any((self.server.data / "spool/in").iterdir()))

    def client(self):
        try:
            return self.over() or RawClient(self.server.socket)
        except (OSError, EOFError):
            return False

    def post(self, client):
        try:
            code = client.begin([LIST])[0]
            if code == 250:
                code = client.command("DATA")[0]
            if code == 354:
                client.send(MAIL + b".\r\n")
                code = client.reply()[0]
            self.answer = code
        except (OSError, EOFError):     # it was killed: what is looked for
            wait_for("mlistd to die", self.over)


def check_everything(server, at, answered):
    """With the daemon running undisturbed: the mail is there once, or twice when nobody had been
    answered; how often too many in the archive, and in a mailbox."""
    if not answered:
        server.accept(MAIL)
    for member in MEMBERS:
        wait_for(f"a mail to {member}", lambda: server.outbox(member))
    wait_for("an empty queue", server.queue_is_empty)
    archived = server.archived()
    check(1 <= len(archived) <= (1 if answered else 2), f"call {at}: {len(archived)} in the archive")
    next_number, records = server.index()
    equal([record[0] for record in records], list(range(1, next_number)), f"call {at}: index")
    for member in MEMBERS:
        mails = server.outbox(member)
        check(1 <= len(mails) <= len(archived), f"call {at}: {len(mails)} mails to {member}")
        for mail in mails:
            check(mail.endswith(b"\n\nHi all.\n"), f"call {at}: a mail that is not whole: {mail!r}")
    for folder in ("spool/in", "spool/tmp", "outbox/.stage"):
        equal(list((server.data / folder).iterdir()), [], f"call {at}: {folder}")
    equal([name for name in server.files("control", "archive") if name.endswith((".new", ".old"))],
          [], f"call {at}: side files")
    equal(server.control("active").read_bytes(), b"alice@example.net\r\nbob@example.jp\r\n",
          f"call {at}: active")
    equal(server.control("digest").read_bytes(), b"carol@example.com\r\n", f"call {at}: digest")
    return len(archived) - 1, len(server.outbox(MEMBERS[0])) - 1
