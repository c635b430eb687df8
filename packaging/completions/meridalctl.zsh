#compdef meridalctl
# SPDX-License-Identifier: Apache-2.0
# zsh completion for meridalctl

# Names that the daemon knows: nothing where there is none, and then as fast.
_meridalctl_offer() {
    local -a options names
    (( ! $+opt_args[--socket] )) || options=(--socket "${(Q)opt_args[--socket]}")
    names=("${(@f)$(meridalctl $options complete $@[-1] 2>/dev/null)}") # _arguments puts compadd's options before it
    [[ -z $names ]] || compadd "${(@)@[1,-2]}" -a names
}

_meridalctl() {
    local context curcontext=$curcontext state line ret=1
    typeset -A opt_args
    local -a globals
    globals=(
        '(- *)'{-h,--help}'[what can be typed]'
        '--socket=[the daemon'\''s socket]:socket:_files'
        '--color=[whether to colour text]:when:(auto always never)'
        '--timeout=[seconds to wait for an answer]:seconds'
    )
    _arguments -C $globals \
        '(- *)--version[the version of meridalctl]' \
        '1:command:->command' \
        '*::argument:->argument' && ret=0

    case $state in
        command)
            local -a commands
            commands=(
                'screen:everything on a full screen, with keys and mouse'
                'top:the processes that use the most, live or as text'
                'processes:all processes, or the names of some by their ids'
                'process:everything that is known of one process'
                'version:the daemon'\''s version and build'
                'ping:how long the daemon takes to answer'
                'status:what the daemon costs, and what it cannot measure here and why'
                'uptime:how long the machine has been up, and its boots before'
                'sensors:temperatures, voltages, currents, powers, humidities and fans'
                'fans:the fans and how fast they turn'
                'history:what was recorded of sensors, disks and the machine'
                'battery:charge, health and time left of the batteries'
                'disks:the disks, their temperature and health'
                'network:the network interfaces'
                'bandwidth:what went through the network interfaces'
                'apps:what each application has used'
                'at:what was at a moment'
                'why:why the machine is hot, loud, slow, or short of memory or charge'
                'metrics:every current figure, for Prometheus and its kin'
                'check:whether all is well'
                'call:call any method of the daemon'
                'bar:one line an update, for status bars'
                'help:what can be typed'
                'watch:print the daemon'\''s results as JSON lines'
            )
            _describe -t commands command commands && ret=0
            ;;
        argument)
            local -a json csv rows days picture stretch
            json='--json[as JSON]'
            csv='(--json)--csv[as comma-separated values]'
            rows=('(-n --rows)'{-n,--rows=}'[at most so many]:number')
            days='--days=[of the last days]:days'
            picture='(--csv --json)--svg=[draw it into a file]:file:_files'
            stretch=(
                '(--range)--from=[from then on]:time'
                '--until=[until then, not now]:time'
                '(--json --svg)--csv[as comma-separated values]'
                '(--csv --svg)--json[as JSON]'
            )
            local ranges='hour day week month threemonth sixmonth year longterm'
            curcontext=${curcontext%:*:*}:meridalctl-$words[1]:
            case $words[1] in
                screen)
                    _arguments $globals '--theme=[how it looks]:theme:(default colourblind mono)' '--ascii[only ASCII characters]' \
                        '--no-mouse[leave the mouse to the terminal]' '--spawn[start a daemon for this screen alone]' \
                        '1:panel:(overview processes sensors disks network applications battery history moment)' && ret=0
                    ;;
                top)
                    _arguments $globals $rows $json \
                        '--hierarchy[group processes under the one responsible for them]' \
                        '(--once)--refreshes=[end after so many]:number' \
                        '(--refreshes)--once[print once, as text]' \
                        '--settle=[seconds until the first figures]:seconds' \
                        '1:list:(cpu memory disk network energy)' && ret=0
                    ;;
                processes)
                    _arguments $globals $json $csv \
                        '--sort=[by what]:column:(pid parent start user name state nice threads group processes unit command cpu memory resident swap read written received sent energy wakeups)' \
                        '--reversed[the smallest first]' \
                        '--filter=[with this in their name or command line]:text' \
                        '--regex[the filter is a regular expression]' \
                        '--user=[of this user only]:user:_users' \
                        '--columns=[columns to show]:columns' \
                        '--limit=[at most so many]:count' \
                        '--grouped[a line for each application]' \
                        '*:process:_pids' && ret=0
                    ;;
                process)
                    _arguments $globals $json \
                        '--watch[show it again every 2 seconds]' \
                        '--refreshes=[end after so many]:count' \
                        '1:process:_pids' && ret=0
                    ;;
                status)
                    _arguments $globals $json && ret=0
                    ;;
                fans)
                    _arguments $globals $json $csv && ret=0
                    ;;
                ping)
                    _arguments $globals '(-c --count)'{-c,--count=}'[so often]:number' && ret=0
                    ;;
                uptime)
                    _arguments $globals $rows $days $json '--history[also list the boots, newest first]' && ret=0
                    ;;
                sensors)
                    _arguments $globals $json $csv '--watch[show them again every 2 seconds]' \
                        '--refreshes=[end after so many]:number' '--check[say whether they are fine]' && ret=0
                    ;;
                network)
                    _arguments $globals $json $csv '--watch[show them again every 2 seconds]' \
                        '--refreshes=[end after so many]:number' && ret=0
                    ;;
                check)
                    _arguments $globals $json '--watch[look again and again]' \
                        '--alert[run the command and send the mail of \[alerts\]]' \
                        '--notify[show changes on the desktop]' \
                        '1:topic:(disks sensors fans battery daemon)' \
                        '*:topic:(disks sensors fans battery daemon)' && ret=0
                    ;;
                history)
                    _arguments $globals $stretch $picture \
                        "(--from)--range=[how far back]:range:($ranges)" \
                        "--resolution=[how finely]:range:(auto $ranges)" '*:name:_meridalctl_offer series' && ret=0
                    ;;
                battery)
                    _arguments $globals $rows $days $json \
                        '--history[also show how health and cycles changed]' \
                        '--sleeps[also show what sleeps took]' \
                        '--worst[those sleeps that took most an hour]' && ret=0
                    ;;
                disks)
                    _arguments $globals $json $csv '--attributes[also list what each disk keeps of itself]' \
                        '--check[say whether they are fine]' '*:disk:_meridalctl_offer disks' && ret=0
                    ;;
                bandwidth)
                    _arguments $globals $days $json $csv '--svg=[draw it into a file]:file:_files' \
                        '--by=[what a row stands for]:what:(hour day month interface network station)' \
                        '--interface=[of this interface only]:interface:_meridalctl_offer interfaces' \
                        '--all[also of interfaces that are no hardware]' && ret=0
                    ;;
                apps)
                    _arguments $globals $stretch $picture \
                        '(--from)--range=[how far back]:range:(hour day week month year)' \
                        '--by=[by what]:what:(cpu energy memory disk network)' \
                        '--group=[only this one, and its course]:application:_meridalctl_offer applications' \
                        '--user=[of this user only]:uid' \
                        '--limit=[at most so many]:number' && ret=0
                    ;;
                at)
                    _arguments $globals $json '*:time:(now yesterday)' && ret=0
                    ;;
                why)
                    _arguments $globals $json '--at=[at that moment]:time' \
                        '1:complaint:(hot loud slow draining busy-disk busy-network memory)' && ret=0
                    ;;
                metrics)
                    _arguments $globals '--openmetrics[in the format OpenMetrics 1.0]' \
                        '--output=[replace this file instead of printing]:file:_files' \
                        '--all[also the machine'\''s own figures]' \
                        '--groups=[tell so many applications apart]:number' \
                        '--no-wifi-names[add up Wi-Fi networks instead of naming them]' \
                        '--backfill[what was recorded, with times]' \
                        '--from=[from then on]:time' '--until=[until then, not now]:time' && ret=0
                    ;;
                watch)
                    _arguments $globals '(-n --count)'{-n,--count=}'[end after so many]:number' \
                        '--hierarchy[group processes under the one responsible for them]' \
                        '*:key:(cpu memory disk network energy smart-temperatures smart-status battery)' && ret=0
                    ;;
                call)
                    _arguments $globals '1:method:_meridalctl_offer methods' '*:parameter' && ret=0
                    ;;
                bar)
                    _arguments $globals '--format=[for whom]:bar:(waybar polybar i3bar tmux plain)' \
                        '--interval=[seconds between two lines]:seconds' \
                        '--refreshes=[stop after so many lines]:number' '1:template' && ret=0
                    ;;
                help)
                    _arguments $globals '1:command:(top processes process version ping status uptime sensors fans history battery disks network bandwidth apps at why metrics check call watch bar)' && ret=0
                    ;;
                *)
                    _arguments $globals '*:parameter' && ret=0
                    ;;
            esac
            ;;
    esac
    return ret
}

_meridalctl "$@"
