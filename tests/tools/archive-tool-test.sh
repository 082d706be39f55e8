#!/bin/sh
# The archive tool on a small archive, from an index that is damaged on.
# usage: archive-tool-test.sh TOOL
set -eu

tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
box=$work/INBOX
failures=0

# expect STATUS TEXT ARGUMENT...: TEXT is all of the output, its CR LF written as LF
expect()
{
    wanted_status=$1
    printf '%s' "$2" >"$work/wanted"
    shift 2
    status=0
    "$tool" "$@" >"$work/raw" 2>"$work/errors" || status=$?
    tr -d '\r' <"$work/raw" >"$work/got"
    if [ "$status" -ne "$wanted_status" ] || ! diff "$work/wanted" "$work/got"; then
        echo "FAILED (status $status): $*"
        cat "$work/errors"
        failures=$((failures + 1))
    fi
}

mkdir -p "$box/#msg"
printf 'Subject: one\r\nDate: Sun, 15 Nov 2026 09:00:00 +0900\r\n\r\nfirst\r\n' >"$box/#msg/3"
printf 'Subject: two\r\n\r\nsecond\r\n' >"$box/#msg/8"
printf 'no index' >"$box/#mix"

expect 1 '' "$box" search ALL # and makes the index anew
grep -q 'cannot open' "$work/errors"
expect 0 '* SEARCH 1 2
' "$box" search ALL
expect 0 '* SEARCH 3
' --uid "$box" search SENTON 15-Nov-2026
expect 0 '* SEARCH 2
' --charset=euc-jp "$box" search OR 'TEXT second' SUBJECT '"t w o"'
expect 0 '' "$box" search TEXT nowhere
expect 1 '' "$box" search NONSENSE
grep -q 'malformed criteria: NONSENSE' "$work/errors"

expect 0 '* 1 FETCH (UID 3 RFC822.SIZE 62)
* 2 FETCH (UID 8 RFC822.SIZE 24)
' "$box" fetch '1:*' UID RFC822.SIZE
expect 0 '* 2 FETCH (BODY[TEXT] {8}
second
)
' -u "$box" fetch 8 'BODY.PEEK[TEXT]'
expect 1 '' -u "$box" fetch 5 UID
expect 1 '' "$box" fetch 3 UID

"$tool" "$box" open >"$work/opened"
grep -q '^\* 2 EXISTS' "$work/opened"
"$tool" "$box" check >"$work/checked"
cmp "$work/opened" "$work/checked"

# a message that is read becomes \Seen in the index only when that is asked for
"$tool" "$box" fetch 1 'BODY[]' >/dev/null
expect 0 '* SEARCH 1 2
' "$box" search UNSEEN
"$tool" --write "$box" fetch 1 'BODY[]' >/dev/null
expect 0 '* SEARCH 2
' "$box" search UNSEEN

"$tool" --help | grep -q '^usage: archive_tool'
expect 64 '' "$box"
expect 64 '' "$box" fetch 1
expect 64 '' --nonsense "$box" open
expect 1 '' "$work/nowhere" open

exit "$((failures > 0))"
