#!/usr/bin/env bash
# Every script tells with --help what it takes, and refuses with one line what it doesn't, before it
# does anything: what they work with stands in for itself here, and tells that it was called.
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
cd "$source"
mkdir "$work/bin"
for program in apt-get cmake dpkg-query git mktemp mmdebstrap sudo; do
    printf '#!/bin/sh\necho %s >>%s\nexit 1\n' $program "$work/called" >"$work/bin/$program"
done
chmod +x "$work"/bin/*

failed=0
check() { # STATUS STANDARD-ERROR-LINES SCRIPT [ARGUMENT...]
    local status=0
    PATH=$work/bin:$PATH "${@:3}" >"$work/out" 2>"$work/err" </dev/null || status=$?
    [ "$status $(wc -l <"$work/err")" = "$1 $2" ] && [ ! -e "$work/called" ] && return
    echo "status $status instead of $1, or $(wc -l <"$work/err") lines instead of $2, or it works: ${*:3}"
    cat "$work"/{err,called} 2>/dev/null || true
    rm -f "$work/called"
    failed=1
}

for script in scripts/* .ci/run; do
    if [ ! -f "$script" ] || [ ! -x "$script" ]; then continue; fi
    check 0 0 "$script" --help
    grep -q "^    $script" "$work/out" || { echo "$script --help does not show its use" && failed=1; }
    ! grep -q '^#' "$work/out" || failed=1
    check 2 1 "$script" --nowhere
    [ "$script" = scripts/on-device ] || check 2 1 "$script" 1 2 3 4 5 # takes a command with its own
done
while IFS='|' read -ra uses; do # of one script, each with its own mistake
    for words in "${uses[@]:1}"; do
        # shellcheck disable=SC2086 # words
        check 2 1 "scripts/${uses[0]}" $words
    done
done <<'END'
abi||check more|names|prune
bench||nothing|library none|agent 1 2|agent 10 3 4|watch 300 0|watch 300 1 1
check-build||
demo|--stay more
derive|--check more
fleet||3 4|0|501|--shards 10 3|--recorded 3|--seed|--seed x 3
fresh|demo elsewhere
fuzz||1s
on-device||/tmp/nowhere
test|--all more
END

# Bold is for terminals, and for who wants it.
bold() { # NO_COLOR [PIPE]
    SHELL=/bin/bash script -qec "NO_COLOR=$1 bash -c '. scripts/lib/script.sh; title x' scripts/demo ${2-}" /dev/null |
        grep -c $'\033' || true
}
[ "$(bold '') $(bold 1) $(bold '' '| cat')" = "1 0 0" ] || { echo "not bold where it should be, or the other way round" && failed=1; }
exit $failed
