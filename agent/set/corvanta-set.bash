# shellcheck shell=bash
# Completes corvanta-set's options, the objects that can be set, their rows and their values.

_corvanta_set() {
    # Bash takes "cvVlanEnabled.1=t" for three words.
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} object=''
    if [[ $word == '=' ]]; then
        object=$before word=''
    elif [[ $before == '=' ]]; then
        object=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    COMPREPLY=()
    if [[ -n $object ]]; then
        local values
        values=$(corvanta-set --list | sed -n "s/^${object%%.*}[. ].* \([a-z]*\) or \([a-z]*\)$/\1 \2/p")
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$word")
    elif [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(corvanta-set --help | grep -o -e '--[a-z]*')" -- "$word")
    elif [[ $word == cv* ]]; then
        local name last row names=''
        while IFS=' .-' read -r name _ last _; do
            [[ $last =~ ^[0-9]+$ ]] || last=''
            for ((row = 1; row <= ${last:-1}; ++row)); do names+="$name${last:+.$row}= "; done
        done < <(corvanta-set --list | sed 's/^\([A-Za-z]*\) .*/\1/')
        mapfile -t COMPREPLY < <(compgen -W "$names" -- "$word")
        compopt -o nospace
    else
        mapfile -t COMPREPLY < <(compgen -A hostname -- "$word")
    fi
}
complete -F _corvanta_set corvanta-set
