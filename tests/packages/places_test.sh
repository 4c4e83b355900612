#!/usr/bin/env bash
# Whether every place that docs/adding-an-object.md names is there, and they are no more than it says.
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
cd "$source"
counts=()
while IFS='|' read -r _ file text _; do
    if [[ $file != *\`* ]]; then
        counts+=(0)
        continue
    fi
    file=${file//[\` ]/} text=${text#*\`} text=${text%\`*}
    grep -qF -- "$text" "$file" || fail "docs/adding-an-object.md: no '$text' in $file"
    counts[-1]=$((counts[-1] + 1))
done < <(grep '^|' docs/adding-an-object.md | grep -v '^| ---')
[ "${counts[*]}" = "9 4" ] || fail "${counts[*]} places instead of 9 and 4"
