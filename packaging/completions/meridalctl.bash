# SPDX-License-Identifier: Apache-2.0
# bash completion for meridalctl
_meridalctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command="" word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case $word in
            top|processes|version|ping|status|uptime|sensors|fans|history|battery|disks|network|bandwidth|apps|at|why|call|watch) command=$word; break ;;
        esac
    done
    case $previous in
        --socket) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
        --color) mapfile -t COMPREPLY < <(compgen -W "auto always never" -- "$current"); return ;;
        --range) [[ $command == apps ]] && mapfile -t COMPREPLY < <(compgen -W "hour day week month year" -- "$current") && return
            mapfile -t COMPREPLY < <(compgen -W "hour day week month threemonth sixmonth year longterm" -- "$current"); return ;;
        --resolution) mapfile -t COMPREPLY < <(compgen -W "auto hour day week month threemonth sixmonth year longterm" -- "$current"); return ;;
        --by) [[ $command == apps ]] && mapfile -t COMPREPLY < <(compgen -W "cpu energy memory disk network" -- "$current") && return
            mapfile -t COMPREPLY < <(compgen -W "hour day month interface network station" -- "$current"); return ;;
        --svg) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
        --interface|--from|--until|--group|--user|--limit|--timeout|--rows|-n|--days|--refreshes|--settle|--count|-c|--at) return ;;
    esac
    local words="--help --socket --color --timeout"
    case $command in
        "") words+=" --version top processes version ping status uptime sensors fans history battery disks network bandwidth apps at why call watch" ;;
        top) words+=" cpu memory disk network energy --hierarchy --rows --json --once --refreshes --settle" ;;
        processes|status) words+=" --json" ;;
        uptime) words+=" --history --rows --days --json" ;;
        battery) words+=" --history --sleeps --worst --rows --days --json" ;;
        sensors|network) words+=" --watch --refreshes --json" ;;
        fans) words+=" --json" ;;
        history) words+=" --range --from --until --resolution --csv --json --svg" ;;
        apps) words+=" --range --from --until --by --group --user --limit --csv --json --svg" ;;
        disks) words+=" --attributes --json" ;;
        bandwidth) words+=" --by --days --interface --all --svg --json" ;;
        at) words+=" --json yesterday now" ;;
        why) words+=" hot loud slow draining busy-disk busy-network memory --at --json" ;;
        ping) words+=" --count" ;;
        watch) words+=" cpu memory disk network energy smart-temperatures smart-status battery --hierarchy --count" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _meridalctl meridalctl
