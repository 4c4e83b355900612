#!/usr/bin/env bash
# Keeps docs/adding-an-object.md true: its code stands in its patch, the patch fits the sources, the
# library's tests pass with it, and the agent then shows the new object of the stand-in device.
#
#     example_test.sh SMI_DIR
# shellcheck source=lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/lib.sh"
smi=$(realpath -m -- "$1")
example=$source/docs/adding-an-object
cd "$work"

perl -0777 -e 'my ($text, $patch) = <>;
    my $added = join "\n", "", $patch =~ /^\+(.*)$/mg, "";
    my @code = $text =~ /^```\w*\n(.*?)^```$/msg or die "no code\n";
    index($added, "\n$_") >= 0 or die "not in the patch:\n$_" for @code;' "$example".{md,patch}

mkdir tree
find "$source" -mindepth 1 -maxdepth 1 ! -name 'build*' ! -name .git -exec cp -r -t tree {} +
# As outside any repository, whatever the caller is in.
GIT_DIR=$work/none git -C tree apply "$example.patch"
cmake -S tree -B build -DCORVANTA_WERROR=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 >/dev/null
cmake --build build --target library_test corvantad quorlet pvcshim --parallel 2
build/tests/library/library_test --gtest_brief=1

export SMIPATH=$smi MIBDIRS=$smi:$work/tree/agent/share
smilint -m -s -l 6 -i namelength-32 tree/agent/share/CORVANTA-MIB.txt |& tee smilint
[ ! -s smilint ]
user reader
CORVANTA_BUILD=build tree/scripts/on-device device build/agent/corvantad --foreground \
    --master "unix:$work/agent" --config agent.conf --state "$work/state" &
started=($!)
soon snmpget -r 0 -t 1 -Oqv "unix:$work/agent" cvDslSnrMargin.0 | tee said
grep -qx "9 dB" said
