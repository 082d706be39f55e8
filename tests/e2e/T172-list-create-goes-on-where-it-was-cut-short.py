"""Whatever a cut short run left, the same command makes the list."""

import shutil

from lib import LIST, daemon, equal, message

with daemon(members=(), start=False) as server:
    whole = [path for path in server.data.rglob("*") if path.name not in ("lock",)]
    whole = [path.relative_to(server.data) for path in whole]
    model = server.root / "model"
    server.data.rename(model)

    # The files in the order of their making; "init" is the last.
    order = sorted(whole, key=lambda path: (model / path).stat().st_ctime_ns)
    for count in range(len(order)):
        server.data.mkdir()
        for path in sorted(order[:count], key=lambda path: len(path.parts)):
            if path.name == "init":
                continue
            if (model / path).is_dir():
                (server.data / path).mkdir(parents=True, exist_ok=True)
            else:
                (server.data / path).parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(model / path, server.data / path)
        if count % 2 == 0 and server.control().is_dir():
            (server.control() / "init.making").write_bytes(b"journal=")
        server.ctl("list", "create", LIST)
        server.ctl("list", "check", LIST)
        equal(server.index(), (1, []), "archive")
        if count < len(order) - 1:
            shutil.rmtree(server.data)

    server.start()
    server.accept(message())
    equal(len(server.archived()), 1, "messages in the archive")
