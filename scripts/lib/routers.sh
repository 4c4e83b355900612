# shellcheck shell=bash disable=SC2034,SC2154
# Sourced by the scripts that watch stand-in routers, after script.sh: a folder and programs that are
# gone when the script ends, and routers with SNMPv3 users, each on a loopback address of its own.
# $build is the build folder.

folder=$(mktemp -d)
started=()
stop() {
    [ ${#started[@]} -eq 0 ] || kill "${started[@]}" 2>/dev/null || true
    wait
    rm -rf -- "$folder"
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
# Ends with the script, even when that is killed.
run() {
    setpriv --pdeathsig TERM "$@" &
    started+=($!)
}
# In the background, so that a signal is obeyed at once.
await() {
    local status=0
    run "$@"
    wait $! || status=$?
    unset 'started[-1]'
    return "$status"
}
fail() {
    echo "${script##*/}: $1" >&2
    exit 1
}
# Fails, with the ends of the logs, when a program has ended that should run.
all_run() {
    local pid
    for pid in "${started[@]}"; do
        kill -0 "$pid" 2>/dev/null || {
            tail -n 3 "$folder"/*.log "$folder"/*/log >&2
            fail "a program has ended"
        }
    done
}

# Ports that the kernel gives on these addresses, each written as udp:127.0.0.1.
free_ports() {
    perl -MIO::Socket::INET -e 'print map { my ($protocol, $address) = split /:/;
        my @listen = $protocol eq "tcp" ? (Listen => 1) : ();
        my $socket = IO::Socket::INET->new(Proto => $protocol, LocalAddr => $address, @listen) or die "$_: $@\n";
        push @held, $socket; $socket->sockport . "\n" } @ARGV' "$@"
}
# The addresses of so many routers, each with a port, and the ports of further programs.
network=127.$((64 + $$ % 128)) addresses=() ports=()
take_addresses() { # ROUTERS PROGRAMS
    local i programs=()
    for ((i = 0; i < $1; ++i)); do addresses+=("$network.$((i / 250)).$((i % 250 + 1))"); done
    for ((i = 0; i < $2; ++i)); do programs+=(tcp:127.0.0.1); done
    mapfile -t ports < <(free_ports "${addresses[@]/#/udp:}" "${programs[@]}")
    for ((i = 0; i < $1; ++i)); do addresses[i]+=:${ports[i]}; done
    ports=("${ports[@]:$1}")
}

# A reader and an operator, whose passphrase is made for this run and stands in files of mode 0600 only.
umask 077
secret=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
cat >"$folder/agent.conf" <<END_OF_CONF
createUser corvantaReader SHA $secret AES $secret
createUser corvantaOperator SHA $secret AES $secret
view corvantaSeen included .1.3.6.1.4.1
view corvantaSeen included .1.3.6.1.2.1.1
view corvantaSeen included .1.3.6.1.6.3.10.2.1
rouser corvantaReader priv -V corvantaSeen
rwuser corvantaOperator priv .1.3.6.1.4.1
END_OF_CONF
mkdir "$folder/snmp"
printf 'def%s\n' 'Version 3' 'SecurityName corvantaReader' 'SecurityLevel authPriv' 'AuthType SHA' \
    'PrivType AES' "Passphrase $secret" >"$folder/snmp/snmp.conf"
printf '%s\n' "mibdirs $PWD/agent/share/modules:$PWD/agent/share" 'mibs CORVANTA-MIB' >>"$folder/snmp/snmp.conf"

# What a device tells is changed aside and moved into place, so that it's read whole.
set_rates() { # ROUTER DOWN UP, with some to spare
    printf 'columns Down Up\nactual %d %d\nattainable %d %d\n' "$2" "$3" $(($2 + 64 * (RANDOM % 12))) \
        $(($3 + 32 * (RANDOM % 12))) >"$folder/$1/new"
    mv "$folder/$1/new" "$folder/$1/device/line-rates"
}
set_circuits() { # ROUTER "VPI...", those that are open
    sed -n "1p; /^ *[^ ]*  *\(${2// /\\|}\) /p" "$build/device/pvc" >"$folder/$1/new"
    mv "$folder/$1/new" "$folder/$1/device/pvc"
}
make_router() { # ROUTER
    mkdir "$folder/$1"
    CORVANTA_BUILD=$build scripts/on-device "$folder/$1/device" true
}
start_agent() { # ROUTER [OPTION...]
    CORVANTA_BUILD=$build run scripts/on-device "$folder/$1/device" "$build/agent/corvantad" --foreground \
        --state "$folder/$1/state" "${@:2}" 2>>"$folder/$1/log"
    echo $! >"$folder/$1/pid"
}
