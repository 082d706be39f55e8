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

# configure PRESET: quiet as long as all goes well.
configure() {
    output=$(cmake --preset "$1" 2>&1) || {
        printf '%s\n' "$output" >&2
        die "cmake --preset $1 failed; has script/setup run?"
    }
}

# build PRESET [target...]: everything when no target is named.
build() {
    preset=$1
    shift
    if [ $# -gt 0 ]; then
        set -- --target "$@"
    fi
    if [ -t 1 ]; then
        cmake --build --preset "$preset" -j "$(jobs_count)" "$@"
    else # a log wants the failures, not the progress
        cmake --build --preset "$preset" -j "$(jobs_count)" "$@" -- --quiet
    fi
}

configure_and_build() {
    configure "$1"
    build "$1"
}
