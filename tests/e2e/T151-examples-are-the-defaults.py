import subprocess

from lib import BUILD, SOURCE, daemon, equal

EXAMPLES = SOURCE / "packaging/examples"


def without_comments(text):
    return [line for line in text.splitlines() if line and not line.startswith("#")]


with daemon(start=False) as server:
    printed = subprocess.run([BUILD / "bin/mlistd", "--print-config"], capture_output=True,
                             text=True, check=True).stdout
    equal(without_comments((EXAMPLES / "mlistd.toml").read_text()), without_comments(printed),
          "mlistd.toml")
    equal(subprocess.run([BUILD / "bin/mlistd", "--check-config", "--config",
                          EXAMPLES / "mlistd.toml"], capture_output=True).returncode, 0,
          "mlistd on its example")
    equal((EXAMPLES / "list/init").read_bytes(), server.control("init").read_bytes(), "init")
