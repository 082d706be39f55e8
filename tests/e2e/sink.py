"""A small SMTP server that can be made to misbehave; what it took is in `mails`."""

import socket
import threading


class Sink:
    """`answers` maps a recipient to the reply that he gets: "450 busy" or a list of replies, one a
    try.  `behaviour` is "" or one of garbage, silent, drop, drop-after-data."""

    def __init__(self, answers=None, behaviour="", port=0):
        self.answers = answers or {}
        self.behaviour = behaviour
        self.mails = []         # (sender, recipients, data)
        self.connections = 0
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(("127.0.0.1", port))
        self.port = self.listener.getsockname()[1]
        self.clients = []
        self.listener.listen(16)
        threading.Thread(target=self.accept, daemon=True).start()

    @property
    def target(self):
        return f"smtp:127.0.0.1:{self.port}"

    def accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            self.connections += 1
            self.clients.append(client)
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for client in self.clients:
            client.close()

    def answer_for(self, recipient):
        answer = self.answers.get(recipient, "250 ok")
        if isinstance(answer, list):
            return answer.pop(0) if len(answer) > 1 else answer[0]
        return answer

    def serve(self, client):
        try:
            self.talk(client, client.makefile("rb"))
        except (OSError, ValueError):
            pass
        client.close()

    def talk(self, client, lines):
        def say(text):
            client.sendall(text.encode() + b"\r\n")

        if self.behaviour == "silent":
            lines.read()
            return
        if self.behaviour == "drop":
            return
        say("\x00\xff not a greeting" * 5000 if self.behaviour == "garbage" else "220 sink ESMTP")
        sender, recipients = None, []
        for line in lines:
            words = line.strip().decode("latin-1")
            verb = words.upper()
            if verb.startswith("EHLO"):
                say("250-sink")
                say("250-PIPELINING")
                say("250 8BITMIME")
            elif verb.startswith("MAIL FROM:"):
                sender, recipients = words[11:].split(">")[0], []
                say("250 ok")
            elif verb.startswith("RCPT TO:"):
                recipient = words[9:].split(">")[0]
                answer = self.answer_for(recipient)
                if answer.startswith("250"):
                    recipients.append(recipient)
                say(answer)
            elif verb == "DATA":
                if not recipients:
                    say("554 no valid recipients")
                    continue
                say("354 go on")
                data = b""
                for part in lines:
                    if part == b".\r\n":
                        break
                    data += part[1:] if part.startswith(b".") else part
                if self.behaviour == "drop-after-data":
                    return
                self.mails.append((sender, recipients, data))
                say("250 taken")
            elif verb == "QUIT":
                say("221 bye")
                return
            else:
                say("250 ok")

    def received_by(self, recipient):
        return [data for _, recipients, data in self.mails if recipient in recipients]
