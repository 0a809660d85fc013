# SPDX-License-Identifier: Apache-2.0
# bash completion for desktopctl(1).

_desktopctl() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" = 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'status watch clients send suspend resume snapshot dump
            doctor --help --version' -- "$current")
        return
    fi
    case ${COMP_WORDS[1]}:$before in
    dump:--seconds | watch:--interval | watch:--count) ;;
    status:* | doctor:*) mapfile -t COMPREPLY < <(compgen -W '--json' -- "$current") ;;
    watch:*) mapfile -t COMPREPLY < <(compgen -W '--interval --count' -- "$current") ;;
    send:send) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3 4 5 6 7' -- "$current") ;;
    dump:dump | snapshot:snapshot)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    dump:*) mapfile -t COMPREPLY < <(compgen -W '--seconds' -- "$current") ;;
    esac
}
complete -o filenames -F _desktopctl desktopctl
