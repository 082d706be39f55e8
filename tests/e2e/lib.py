"""A temporary mlistd with its lists, and what a test asks of it.

A test is a program: it ends with 0 when the behaviour in its name holds, with 77 when the machine
does not let it try.  MLIST_BUILD names the build directory to test.
"""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import smtplib
import socket
import struct
import subprocess
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = pathlib.Path(os.environ.get("MLIST_BUILD", SOURCE / "build"))
SKIPPED = 77
LIST = "mylist@example.jp"
MEMBERS = ("alice@example.net", "bob@example.jp")

# Sanitizer builds on a busy machine take their time; nothing waits this long when all is well.
PATIENCE = 60

# Of a build with a sanitizer, whose own memory is not the daemon's.
SANITIZED = bool(os.environ.get("MLIST_SANITIZED"))

SANITIZER_REPORT = re.compile(
    rb"ERROR: AddressSanitizer|runtime error:|WARNING: ThreadSanitizer|ERROR: LeakSanitizer")


# -- saying what went wrong ----------------------------------------------------------------------

def fail(text):
    raise AssertionError(text)


def check(condition, text):
    if not condition:
        fail(text)


def equal(got, want, what):
    """Equal values; of bytes the place of the first difference is shown."""
    if got == want:
        return
    if isinstance(got, bytes) and isinstance(want, bytes):
        at = next((i for i, (a, b) in enumerate(zip(got, want)) if a != b),
                  min(len(got), len(want)))
        start = max(0, at - 40)
        fail(f"{what}: {len(got)} bytes, wanted {len(want)}; differs at byte {at}\n"
             f"  got    {got[start:at + 40]!r}\n  wanted {want[start:at + 40]!r}")
    fail(f"{what}: got {shortened(got)}, wanted {shortened(want)}")


def shortened(value, most=2000):
    text = repr(value)
    return text if len(text) <= most else f"{text[:most]}... ({len(text)} characters)"


def wait_for(what, condition, seconds=PATIENCE):
    """Polls until the condition gives something true, which is returned."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            fail(f"waited {seconds} s in vain for {what}")
        time.sleep(0.02)


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def memory(pid, field="VmRSS"):
    """Kilobytes of a process: "VmRSS" those in memory now, "VmHWM" the most so far."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(rf"^{field}:\s+(\d+) kB", status, re.MULTILINE).group(1))


def forget_peak(pid):
    """VmHWM starts again from what is in memory now."""
    pathlib.Path(f"/proc/{pid}/clear_refs").write_text("5")


# -- messages ------------------------------------------------------------------------------------

def message(subject=b"Hello", body=b"Hi all.\r\n", sender=b"Alice Example <alice@example.net>",
            number=1, extra=b""):
    """A small mail as an MTA hands it over."""
    return (b"Date: Sun, 15 Nov 2026 09:13:57 +0900\r\n"
            b"From: " + sender + b"\r\n"
            b"To: mylist@example.jp\r\n"
            b"Subject: " + subject + b"\r\n"
            b"Message-ID: <a%d@example.net>\r\n" % number +
            b"Mime-Version: 1.0\r\n"
            b"Content-Type: text/plain; charset=us-ascii\r\n" + extra +
            b"\r\n" + body)


def distributed(original, number, subject, list_name="mylist", domain="example.jp"):
    """What becomes of a message() as posting `number` of a list with the usual settings."""
    head, body = original.split(b"\r\n\r\n", 1)
    lines = head.split(b"\r\n")
    at = next(i for i, line in enumerate(lines) if line.startswith(b"Subject:"))
    del lines[at]
    address = f"{list_name}@{domain}".encode()
    lines += [b"X-ML-Name: " + address,
              b"X-Mail-Count: %06d" % number,
              b"Precedence: list",
              b"Reply-To: " + address,
              b"Subject: [%s:%d] %s" % (list_name.encode(), number, subject)]
    return b"\r\n".join(lines) + b"\r\n\r\n" + body


def in_maildir(mail, list_address=LIST):
    """How the outbox keeps a posting: a Maildir has LF line ends and the envelope's sender."""
    return b"Return-Path: <owner-" + list_address.encode() + b">\n" + mail.replace(b"\r\n", b"\n")


# -- a client that obeys nothing -----------------------------------------------------------------

class RawClient:
    """LMTP by hand: for what a well-behaved client cannot be made to do."""

    def __init__(self, path, greet=True):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(str(path))
        self.received = b""
        if greet:
            equal(self.reply()[0], 220, "greeting")
            equal(self.command("LHLO client.example.net")[0], 250, "LHLO")

    def send(self, data):
        self.socket.sendall(data)

    def line(self):
        while b"\n" not in self.received:
            piece = self.socket.recv(65536)
            if not piece:
                raise EOFError("the server closed the connection")
            self.received += piece
        line, self.received = self.received.split(b"\n", 1)
        return line.rstrip(b"\r").decode("latin-1")

    def reply(self):
        """(code, text of the last line)"""
        while True:
            line = self.line()
            if line[3:4] != "-":
                return int(line[:3]), line[4:]

    def command(self, line):
        self.send(line.encode() + b"\r\n")
        return self.reply()

    def begin(self, recipients, sender="alice@example.net"):
        """Up to DATA; the codes of the recipients."""
        equal(self.command(f"MAIL FROM:<{sender}>")[0], 250, "MAIL")
        return [self.command(f"RCPT TO:<{recipient}>")[0] for recipient in recipients]

    def data(self, wire, replies=1):
        """The codes after wire, which must end the data itself."""
        equal(self.command("DATA")[0], 354, "DATA")
        self.send(wire)
        return [self.reply()[0] for _ in range(replies)]

    def closed_by_server(self):
        """Reads until the server closes; the last reply code, or None."""
        code = None
        try:
            while True:
                code = self.reply()[0]
        except (EOFError, ConnectionError):
            return code

    def close(self):
        self.socket.close()


# -- the daemon ----------------------------------------------------------------------------------

def toml(tables):
    text = ""
    for name, values in tables.items():
        text += f"[{name}]\n"
        for key, value in values.items():
            text += f"{key} = {json.dumps(value)}\n"
    return text


class Daemon:
    """mlistd over a temporary tree.  Settings are tables of keys laid over those of all tests."""

    def __init__(self, settings=None):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="mlist-e2e-"))
        os.chmod(self.root, 0o755)
        self.data = self.root / "data"
        self.data.mkdir()
        self.socket = self.root / "lmtp"
        self.config = self.root / "mlistd.toml"
        self.log = self.root / "mlistd.log"
        self.process = None
        self.environment = {**os.environ, "TZ": "Asia/Tokyo"}
        self.configure(settings or {})

    def configure(self, settings):
        tables = {"paths": {"data": str(self.data)},
                  "process": {"hostname": "mail.example.jp"},
                  "log": {"target": "stderr"},
                  "lmtp": {"listen": f"unix:{self.socket}"}}
        for name, values in settings.items():
            tables.setdefault(name, {}).update(values)
        self.config.write_text(toml(tables))

    # -- running

    def start(self, prefix=()):
        self.launch(prefix)
        wait_for("mlistd to answer", self.answers)
        return self

    def launch(self, prefix=()):
        """Without waiting until it serves."""
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [*prefix, BUILD / "bin/mlistd", "--config", self.config],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env=self.environment)

    def answers(self):
        if self.process.poll() is not None:
            fail(f"mlistd ended with {self.process.returncode}:\n{self.last_log_lines()}")
        try:
            client = RawClient(self.socket)
        except (OSError, EOFError):
            return False
        client.close()
        return True

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self):
        """Its exit status, once it has ended."""
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            fail("mlistd did not end")
        self.process = None
        return status

    def stop(self):
        if self.process:
            self.signal(signal.SIGTERM)
            equal(self.wait(), 0, "exit status of mlistd")

    def kill(self):
        self.process.kill()
        self.wait()

    def close(self):
        if self.process:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.root, ignore_errors=True)

    def last_log_lines(self):
        return b"\n".join(self.log.read_bytes().splitlines()[-40:]).decode("utf-8", "replace") \
            if self.log.exists() else ""

    def check_log(self):
        check(not self.log.exists() or not SANITIZER_REPORT.search(self.log.read_bytes()),
              f"a sanitizer complains:\n{self.last_log_lines()}")

    # -- the operator's tool

    def ctl(self, *words, status=0, stdin=None):
        """Runs mlistctl; its standard output, and on request what it said besides."""
        done = subprocess.run([BUILD / "bin/mlistctl", "--config", self.config, *words],
                              input=stdin, capture_output=True, timeout=PATIENCE,
                              env=self.environment)
        if status is not None and done.returncode != status:
            fail(f"mlistctl {' '.join(map(str, words))}: exit status {done.returncode}, wanted "
                 f"{status}\n{done.stdout.decode()}{done.stderr.decode()}")
        self.complaint = done.stderr.decode()
        return done.stdout.decode()

    def make_list(self, address=LIST, members=MEMBERS, **settings):
        self.ctl("list", "create", address, *(f"--set={k}={v}" for k, v in settings.items()))
        if members:
            self.ctl("member", "add", address, *members)

    # -- the client's side

    def client(self):
        client = smtplib.LMTP(str(self.socket), local_hostname="client.example.net")
        client.timeout = PATIENCE
        return client

    def raw(self, **options):
        return RawClient(self.socket, **options)

    def post(self, mail, to=LIST, sender="alice@example.net"):
        """(code, text) of the answer that decides."""
        with self.client() as client:
            client.ehlo_or_helo_if_needed()
            for reply in (client.mail(sender), client.rcpt(to)):
                if reply[0] >= 300:
                    return reply
            try:
                return client.data(mail)
            except smtplib.SMTPDataError as refused:    # before the mail was sent
                return refused.smtp_code, refused.smtp_error

    def accept(self, mail, **options):
        code, text = self.post(mail, **options)
        equal(code, 250, f"answer to a good mail ({text!r})")

    # -- what lies on the disk

    def control(self, name="", address=LIST):
        local, domain = address.split("@")
        return self.data / "control" / domain / local / name

    def box(self, name="", address=LIST):
        local, domain = address.split("@")
        return self.data / "archive" / domain / local / "INBOX" / name

    def archived(self, address=LIST):
        """The archive's messages in the order of their numbers."""
        files = sorted(self.box("#msg", address).iterdir(), key=lambda file: int(file.name))
        return [file.read_bytes() for file in files]

    def index(self, address=LIST):
        """(next number, [(number, flags, header size, size)]) of the archive's index."""
        content = self.box("#mix", address).read_bytes()
        records = [struct.unpack_from("<4I", content, at) for at in range(0, len(content) - 15, 16)]
        return records[0][0], records[1:]

    def outbox(self, recipient):
        """The mails that lie in a recipient's Maildir."""
        folder = self.data / "outbox" / recipient / "new"
        files = sorted(folder.iterdir()) if folder.is_dir() else []
        return [file.read_bytes() for file in files]

    def received(self, recipient, count=1):
        """Waits for that many mails to a recipient; more are a failure."""
        wait_for(f"{count} mails to {recipient}", lambda: len(self.outbox(recipient)) >= count)
        mails = self.outbox(recipient)
        equal(len(mails), count, f"mails to {recipient}")
        return mails

    def queue_is_empty(self):
        folder = self.data / "spool/out"
        return not folder.is_dir() or not any(folder.iterdir())

    def files(self, *below):
        """Every file and directory below data, for "nothing was made"."""
        folders = [self.data / name for name in below] or [self.data]
        return sorted(str(path.relative_to(self.data))
                      for folder in folders for path in folder.rglob("*"))


@contextlib.contextmanager
def daemon(settings=None, lists=(LIST,), start=True, **list_settings):
    """A running mlistd with lists of two members each; stopped, and judged, at the end."""
    server = Daemon(settings)
    try:
        for address in lists:
            server.make_list(address, **list_settings)
        if start:
            server.start()
        yield server
        server.stop()
        server.check_log()
    except BaseException:
        sys.stderr.write(f"-- the end of mlistd's log --\n{server.last_log_lines()}\n")
        raise
    finally:
        server.close()


def still_works(server, to=LIST):
    """After whatever happened: a good mail is taken and archived."""
    before = len(server.archived(to))
    server.accept(message(b"Still there", number=999), to=to)
    equal(len(server.archived(to)), before + 1, "messages in the archive")
