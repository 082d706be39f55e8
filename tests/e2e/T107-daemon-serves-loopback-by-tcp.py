import smtplib
import socket

from lib import LIST, Daemon, equal, message

# Free when asked; should somebody take it in between, the start fails and says so.
with socket.socket() as probe:
    probe.bind(("127.0.0.1", 0))
    port = probe.getsockname()[1]

server = Daemon()
server.configure({"lmtp": {"listen": [f"unix:{server.socket}", f"127.0.0.1:{port}"]}})
try:
    server.make_list()
    server.start()
    with smtplib.LMTP("127.0.0.1", port, local_hostname="client.example.net") as client:
        equal(client.sendmail("alice@example.net", [LIST], message()), {}, "refused recipients")
    equal(len(server.archived()), 1, "messages in the archive")
    server.stop()
    server.check_log()
finally:
    server.close()
