from lib import LIST, daemon, distributed, equal, message

OTHER = "other@example.org"

with daemon(lists=(LIST, OTHER)) as server:
    server.accept(message(b"One"))
    server.accept(message(b"Two", number=2))
    server.accept(message(b"Three", number=3), to=OTHER)
    equal(len(server.archived()), 2, "messages of the first list")
    equal(server.archived(OTHER),
          [distributed(message(b"Three", number=3), 1, b"Three", "other", "example.org")],
          "archive of the other list")
