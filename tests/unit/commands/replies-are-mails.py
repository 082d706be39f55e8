#!/usr/bin/python3
"""Reads every golden reply as a mail reader would: no defect, the header that people see, and all
parts of those that have parts."""
import email
import email.policy
import pathlib
import sys

SENDERS = {"mylist@example.jp", "mylist", "owner-mylist@example.jp"}

# What a reader shows of a mail of several parts: the subjects of the mails enclosed.
ENCLOSED = {
    "get.eml": ["Number 1", "Number 2", "Number 3", "Number 5"],
    "get-gone.eml": [None, "Number 3"],
    "digest.eml": ["Number 2", "Number 3"],
    "denial.eml": ["[mylist:1] Buy"],
    "denial-size.eml": ["[mylist:1] Buy"],
}


def check(condition, path, what):
    if not condition:
        sys.exit(f"{path.name}: {what}")


def check_parts(path, mail):
    parts = mail.get_payload()
    wanted = ENCLOSED[path.name]
    check(len(parts) == 1 + len(wanted), path, f"{len(parts)} parts")
    check(parts[0].get_content_type() == "text/plain", path, "the first part is no text")
    check(parts[0].get_content_charset() == "iso-2022-jp", path, "charset of the text")
    check(">>> " in parts[0].get_content() or "\t" in parts[0].get_content(), path, "empty text")
    for part, subject in zip(parts[1:], wanted):
        check(part.get_content_type() == "message/rfc822", path, "an enclosed mail is none")
        enclosed = part.get_payload(0)
        check(enclosed["Subject"] == subject, path, f"encloses {enclosed['Subject']}")
        if subject is not None:
            check(enclosed.get_content().startswith(("Text ", "Some text")), path, "its body")


def check_reply(path):
    mail = email.message_from_bytes(path.read_bytes(), policy=email.policy.default)
    for part in mail.walk():
        check(not part.defects, path, f"defects {part.defects}")
    check(mail["From"] in SENDERS, path, f"From: {mail['From']}")
    check(mail["Subject"].startswith("ML "), path, f"Subject: {mail['Subject']}")
    check(mail["X-ML-Name"] == "mylist@example.jp", path, "X-ML-Name")
    check(mail["In-Reply-To"] == "<c1@example.com>", path, "In-Reply-To")
    check(mail.is_multipart() == (path.name in ENCLOSED), path, "parts, or none")
    if mail.is_multipart():
        check_parts(path, mail)
    else:
        check("\nML Command Reply:\r\n" in path.read_bytes().decode("latin-1"), path, "its text")


def main():
    replies = sorted(pathlib.Path(sys.argv[1]).glob("*.eml"))
    if len(replies) < 20 or not set(ENCLOSED) <= {path.name for path in replies}:
        sys.exit(f"{len(replies)} replies in {sys.argv[1]}: some are missing")
    for path in replies:
        check_reply(path)


main()
