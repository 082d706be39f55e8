from lib import daemon, equal, message

with daemon(members=()) as server:
    server.accept(message())
    equal(len(server.archived()), 1, "messages in the archive")
    server.stop()
    equal(server.files("outbox"), [], "mails that left")
