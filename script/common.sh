# Sourced by the scripts beside it: where the tree is, and how they speak.
# shellcheck shell=sh

ROOT=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
cd "$ROOT"

say() { printf '%s\n' "$*"; }
die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# The one line of help of a script is the second line of its file.
help_if_asked() {
    case ${1-} in
    -h | --help)
        sed -n '2s/^# //p' "$0"
        exit 0
        ;;
    esac
}

jobs_count() {
    if [ -n "${JOBS-}" ]; then
        echo "$JOBS"
    else
        nproc
    fi
}

# configure_and_build PRESET [cmake options]: quiet as long as all goes well.
configure_and_build() {
    preset=$1
    shift
    output=$(cmake --preset "$preset" "$@" 2>&1) || {
        printf '%s\n' "$output" >&2
        die "cmake --preset $preset failed; has script/setup run?"
    }
    cmake --build --preset "$preset" -j "$(jobs_count)"
}
