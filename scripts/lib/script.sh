# shellcheck shell=bash
# Sourced by the scripts beside it, before anything else: goes to the top of the sources, and holds
# what all of them say alike.

script=$(realpath -- "$0")
cd "$(dirname -- "${BASH_SOURCE[0]}")/../.." || exit
script=${script#"$PWD/"}

# The comment at the head of the script is its help.
help() { sed -n '2,${ /^#/!q; /^# shellcheck/d; s/^# \{0,1\}//; p; }' "$script"; }

# A mistake in the arguments.
refuse() {
    echo "$script: $1; '$script --help' tells what it takes" >&2
    exit 2
}

# For scripts that take no option but --help, and from LEAST to MOST arguments: LEAST MOST "$@"
take_arguments() {
    local least=$1 most=$2
    shift 2
    [ "${1-}" != --help ] || { help && exit; }
    case ${1-} in -?*) refuse "no option $1" ;; esac
    [ $# -ge "$least" ] || refuse "too few arguments"
    [ $# -le "$most" ] || refuse "too many arguments"
}
need_whole() { [[ $1 =~ ^[1-9][0-9]{0,5}$ ]] || refuse "'$1' is no whole number from 1 on"; }

# Bold on a terminal only, and not for those who want no colors; the same for the tests' programs.
[ -z "${NO_COLOR-}" ] || export GTEST_COLOR=no CLICOLOR=0
title() {
    if [ -t 1 ] && [ -z "${NO_COLOR-}" ]; then
        printf '\n\033[1m%s\033[0m\n' "$1"
    else
        printf '\n%s\n' "$1"
    fi
}

# Runs a command whose output matters only when it fails; where it takes long, its last line is shown
# from time to time: TITLE COMMAND...
quietly() {
    local said status=0 start=$SECONDS ticker
    said=$(mktemp)
    echo "$1 …"
    while sleep 10 &>/dev/null && kill -0 $$ 2>/dev/null; do # holds no pipe open, ends with the script
        printf '    %d s  %.100s\n' $((SECONDS - start)) "$(tail -n 1 -- "$said")"
    done &
    ticker=$!
    "${@:2}" >"$said" 2>&1 </dev/null || status=$?
    kill "$ticker"
    wait "$ticker" 2>/dev/null || true
    [ "$status" -eq 0 ] || cat -- "$said"
    rm -f -- "$said"
    return "$status"
}

# Passes on what a command prints, and tells that it goes on where it prints nothing for long.
ticking() {
    local start=$SECONDS line part=''
    "$@" 2>&1 | while :; do
        if IFS= read -r -t 10 line; then
            printf '%s\n' "$part$line"
            part=''
        elif [ $? -gt 128 ]; then
            part+=$line
            printf '    … %d s\n' $((SECONDS - start))
        else
            printf '%s' "$part$line"
            break
        fi
    done
}

# Builds targets of a preset, or all of it: PRESET [TARGET...]
build() {
    local preset=$1
    shift
    quietly "Building ($preset)" build_now "$preset" ${1:+--target "$@"}
}
build_now() { cmake --preset "$1" && cmake --build --preset "$@"; }
