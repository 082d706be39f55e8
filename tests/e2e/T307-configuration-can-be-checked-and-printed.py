import subprocess

from lib import BUILD, Daemon, check, equal

server = Daemon()
try:
    def run(*words):
        return subprocess.run([BUILD / "bin/mlistd", *words], capture_output=True, timeout=60)

    equal(run("-c", server.config, "--check-config").returncode, 0, "a good configuration")
    printed = run("-c", server.config, "--print-config")
    equal(printed.returncode, 0, "printing it")
    server.config.write_bytes(printed.stdout)
    equal(run("-c", server.config, "--print-config").stdout, printed.stdout, "printed again")
    server.config.write_text("[lmtp]\n\nlisten = 7\n")
    bad = run("-c", server.config, "--check-config")
    equal(bad.returncode, 78, "a bad configuration")
    equal(bad.stderr.decode(),
          f"mlistd: {server.config}:3: lmtp.listen: must be a text or a list of texts\n", "the line")
    equal(run("--nonsense").returncode, 64, "a bad option")
    equal(run("--help").returncode, 0, "a call for help")
    check(run("--version").stdout.startswith(b"mlistd "), "the version")
finally:
    server.close()
