import os

from lib import LIST, daemon, equal, skip

if os.geteuid() != 0:
    skip("only root can become another user")

UID, GID = 65534, 65534         # nobody, nogroup

with daemon(lists=(), start=False) as server:
    os.chown(server.data, UID, GID)
    server.make_list()
    owners = {(path.lstat().st_uid, path.lstat().st_gid) for path in server.data.rglob("*")}
    equal(owners, {(UID, GID)}, "owners of everything below data")
    modes = {path.name: path.stat().st_mode & 0o777 for path in server.control().iterdir()}
    equal(modes["init"], 0o660, "mode of init")
    equal(modes["msg"], 0o760, "mode of msg")
    equal(server.ctl("member", "list", LIST).count("\n"), 2, "members")
