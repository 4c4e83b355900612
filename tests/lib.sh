# shellcheck shell=bash disable=SC2015,SC2034
# Sourced by the shell tests beside it: a work folder, and programs that run until the test ends.
set -euo pipefail
source=$(realpath -- "$(dirname -- "${BASH_SOURCE[0]}")/..")
work=$(mktemp -d)
started=()
stop() {
    for pid in "${started[@]}"; do
        kill "$pid" && wait "$pid" || true
    done
    started=()
}
trap 'stop; rm -rf -- "$work"' EXIT

fail() {
    echo "FAIL: $1" >&2
    exit 1
}

# Repeats a command until it succeeds, for longer than a busy machine takes.
soon() {
    for ((tries = 900; tries > 0; --tries)); do
        "$@" && return
        sleep 0.2
    done
    fail "never came true: $*"
}

# The configuration of an agent with one user, agent.conf, and of the SNMP tools that ask it.
user() {
    secret=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
    printf "%s $1 %s\n" createUser "SHA $secret AES $secret" rwuser 'priv .1.3.6.1.4.1' >"$work/agent.conf"
    printf 'def%s\n' 'Version 3' "SecurityName $1" 'SecurityLevel authPriv' 'AuthType SHA' \
        'PrivType AES' "Passphrase $secret" >"$work/snmp.conf"
    export SNMPCONFPATH=$work MIBS=CORVANTA-MIB
}
