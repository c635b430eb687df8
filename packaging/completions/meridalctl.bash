# SPDX-License-Identifier: Apache-2.0
# bash completion for meridalctl

# Names that the daemon knows: nothing where there is none, and then as fast.
_meridalctl_offer() {
    local begun=$1 kind=$2 name quoted i options=()
    for ((i = 1; i < COMP_CWORD - 1; i++)); do
        [[ ${COMP_WORDS[i]} != --socket ]] || options=(--socket "${COMP_WORDS[i + 1]}")
    done
    [[ $begun != [\"\']* ]] || quoted=1
    begun=${begun#[\"\']} begun=${begun//\\/}
    while IFS= read -r name; do
        [[ $name == "$begun"* ]] || continue
        if [[ $quoted ]]; then COMPREPLY+=("$name"); else COMPREPLY+=("$(printf %q "$name")"); fi
    done < <(meridalctl "${options[@]}" complete "$kind" 2>/dev/null)
}

_meridalctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command="" word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case $word in
            screen|top|processes|process|version|ping|status|uptime|sensors|fans|history|battery|disks|network|bandwidth|apps|at|why|metrics|check|call|watch|bar|help) command=$word; break ;;
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
        --sort) mapfile -t COMPREPLY < <(compgen -W "pid parent start user name state nice threads group processes unit command cpu memory resident swap read written received sent energy wakeups" -- "$current"); return ;;
        --theme) mapfile -t COMPREPLY < <(compgen -W "default colourblind mono" -- "$current"); return ;;
        --format) mapfile -t COMPREPLY < <(compgen -W "waybar polybar i3bar tmux plain" -- "$current"); return ;;
        --interface) COMPREPLY=(); _meridalctl_offer "$current" interfaces; return ;;
        --group) COMPREPLY=(); _meridalctl_offer "$current" applications; return ;;
        --svg|--output) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
        --interval|--from|--until|--user|--limit|--timeout|--rows|-n|--days|--refreshes|--settle|--count|-c|--at|--groups|--filter|--columns) return ;;
    esac
    local words="--help --socket --color --timeout"
    case $command in
        "") words+=" --version screen top processes process version ping status uptime sensors fans history battery disks network bandwidth apps at why metrics check call watch bar help" ;;
        screen) words+=" overview processes sensors disks network applications battery history moment --theme --ascii --no-mouse --spawn" ;;
        top) words+=" cpu memory disk network energy --hierarchy --rows --json --once --refreshes --settle" ;;
        processes) words+=" --sort --reversed --filter --regex --user --columns --limit --grouped --json --csv" ;;
        process) words+=" --watch --refreshes --json" ;;
        status) words+=" --json" ;;
        uptime) words+=" --history --rows --days --json" ;;
        battery) words+=" --history --sleeps --worst --rows --days --json" ;;
        sensors) words+=" --watch --refreshes --check --json --csv" ;;
        network) words+=" --watch --refreshes --json --csv" ;;
        check) words+=" disks sensors fans battery daemon --json --watch --alert --notify" ;;
        fans) words+=" --json --csv" ;;
        history) words+=" --range --from --until --resolution --csv --json --svg" ;;
        apps) words+=" --range --from --until --by --group --user --limit --csv --json --svg" ;;
        disks) words+=" --attributes --check --json --csv" ;;
        bandwidth) words+=" --by --days --interface --all --svg --json --csv" ;;
        at) words+=" --json yesterday now" ;;
        why) words+=" hot loud slow draining busy-disk busy-network memory --at --json" ;;
        metrics) words+=" --openmetrics --output --all --groups --no-wifi-names --backfill --from --until" ;;
        ping) words+=" --count" ;;
        help) words+=" screen top processes process version ping status uptime sensors fans history battery disks network bandwidth apps at why metrics check call watch bar" ;;
        bar) words+=" --format --interval --refreshes" ;;
        watch) words+=" cpu memory disk network energy smart-temperatures smart-status battery --hierarchy --count" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    case $command in
        history) _meridalctl_offer "$current" series ;;
        disks) _meridalctl_offer "$current" disks ;;
        call) [[ $previous != call ]] || _meridalctl_offer "$current" methods ;;
    esac
}
complete -F _meridalctl meridalctl
