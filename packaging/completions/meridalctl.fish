# SPDX-License-Identifier: Apache-2.0
# fish completion for meridalctl

# The command that has been typed, which is the first word that is no option: "top network" is none of network.
function __meridalctl_command
    set -l words (commandline -opc)
    set -e words[1]
    while set -q words[1]
        switch $words[1]
            case --socket --color --timeout
                set -e words[1]
            case '-*'
            case '*'
                echo $words[1]
                return
        end
        set -e words[1]
    end
    return 1
end
function __meridalctl_is
    contains -- (__meridalctl_command) $argv
end

# Names that the daemon knows: nothing where there is none, and then as fast.
function __meridalctl_offer
    set -l words (commandline -opc)
    set -l options
    if set -l at (contains -i -- --socket $words)
        set options --socket $words[(math $at + 1)]
    end
    command -q meridalctl; and meridalctl $options complete $argv[1] 2>/dev/null
end

set -l none "not __meridalctl_command >/dev/null"
set -l ranges hour day week month threemonth sixmonth year longterm

complete -c meridalctl -f
complete -c meridalctl -s h -l help -d "What can be typed"
complete -c meridalctl -l socket -r -F -d "The daemon's socket"
complete -c meridalctl -l color -x -a "auto always never" -d "Whether to colour text"
complete -c meridalctl -l timeout -x -d "Seconds to wait for an answer"

complete -c meridalctl -n $none -l version -d "The version of meridalctl"
complete -c meridalctl -n $none -a screen -d "Everything on a full screen"
complete -c meridalctl -n $none -a top -d "The processes that use the most"
complete -c meridalctl -n $none -a process -d "Everything that is known of one process"
complete -c meridalctl -n $none -a processes -d "All processes, or the names of some by their ids"
complete -c meridalctl -n $none -a version -d "The daemon's version and build"
complete -c meridalctl -n $none -a ping -d "How long the daemon takes to answer"
complete -c meridalctl -n $none -a status -d "What the daemon costs"
complete -c meridalctl -n $none -a uptime -d "How long the machine has been up"
complete -c meridalctl -n $none -a sensors -d "Temperatures, voltages, currents, powers and fans"
complete -c meridalctl -n $none -a fans -d "The fans and how fast they turn"
complete -c meridalctl -n $none -a history -d "What was recorded"
complete -c meridalctl -n $none -a battery -d "Charge, health and time left"
complete -c meridalctl -n $none -a disks -d "The disks, their temperature and health"
complete -c meridalctl -n $none -a network -d "The network interfaces"
complete -c meridalctl -n $none -a bandwidth -d "What went through the network interfaces"
complete -c meridalctl -n $none -a apps -d "What each application has used"
complete -c meridalctl -n $none -a at -d "What was at a moment"
complete -c meridalctl -n $none -a why -d "Why the machine is hot, loud, slow or short of memory"
complete -c meridalctl -n $none -a metrics -d "Every current figure, for Prometheus"
complete -c meridalctl -n $none -a check -d "Whether all is well"
complete -c meridalctl -n $none -a call -d "Call any method of the daemon"
complete -c meridalctl -n $none -a bar -d "One line an update, for status bars"
complete -c meridalctl -n $none -a help -d "What can be typed"
complete -c meridalctl -n $none -a watch -d "Print the daemon's results as JSON lines"

complete -c meridalctl -n "__meridalctl_is top processes process status uptime sensors fans history battery disks network bandwidth apps at why check" -l json -d "As JSON"
complete -c meridalctl -n "__meridalctl_is top watch" -l hierarchy -d "Group processes under the one responsible for them"
complete -c meridalctl -n "__meridalctl_is top uptime battery" -s n -l rows -x -d "At most so many"
complete -c meridalctl -n "__meridalctl_is top sensors network bar process" -l refreshes -x -d "End after so many"
complete -c meridalctl -n "__meridalctl_is screen" -l theme -x -a "default colourblind mono" -d "How it looks"
complete -c meridalctl -n "__meridalctl_is screen" -l ascii -d "Only ASCII characters"
complete -c meridalctl -n "__meridalctl_is screen" -l no-mouse -d "Leave the mouse to the terminal"
complete -c meridalctl -n "__meridalctl_is screen" -l spawn -d "Start a daemon for this screen alone"
complete -c meridalctl -n "__meridalctl_is screen" -a "overview processes sensors disks network applications battery history moment"
complete -c meridalctl -n "__meridalctl_is top" -l once -d "Print once, as text"
complete -c meridalctl -n "__meridalctl_is top" -l settle -x -d "Seconds until the first figures"
complete -c meridalctl -n "__meridalctl_is top" -a "cpu memory disk network energy"
complete -c meridalctl -n "__meridalctl_is processes process" -a "(__fish_complete_pids)"
complete -c meridalctl -n "__meridalctl_is processes" -l sort -x -a "pid parent start user name state nice threads group processes unit command cpu memory resident swap read written received sent energy wakeups" -d "By what"
complete -c meridalctl -n "__meridalctl_is processes" -l reversed -d "The smallest first"
complete -c meridalctl -n "__meridalctl_is processes" -l filter -x -d "With this in their name or command line"
complete -c meridalctl -n "__meridalctl_is processes" -l regex -d "The filter is a regular expression"
complete -c meridalctl -n "__meridalctl_is processes" -l columns -x -d "Columns to show"
complete -c meridalctl -n "__meridalctl_is processes" -l grouped -d "A line for each application"
complete -c meridalctl -n "__meridalctl_is ping" -s c -l count -x -d "So often"
complete -c meridalctl -n "__meridalctl_is watch" -s n -l count -x -d "End after so many"
complete -c meridalctl -n "__meridalctl_is watch" -a "cpu memory disk network energy smart-temperatures smart-status battery"
complete -c meridalctl -n "__meridalctl_is uptime battery" -l history -d "Also what was before, newest first"
complete -c meridalctl -n "__meridalctl_is uptime battery bandwidth" -l days -x -d "Of the last days"
complete -c meridalctl -n "__meridalctl_is battery" -l sleeps -d "Also show what sleeps took"
complete -c meridalctl -n "__meridalctl_is battery" -l worst -d "Those sleeps that took most an hour"
complete -c meridalctl -n "__meridalctl_is sensors network process" -l watch -d "Show them again every 2 seconds"
complete -c meridalctl -n "__meridalctl_is check" -a "disks sensors fans battery daemon"
complete -c meridalctl -n "__meridalctl_is check" -l watch -d "Look again and again"
complete -c meridalctl -n "__meridalctl_is check" -l alert -d "Run the command and send the mail of [alerts]"
complete -c meridalctl -n "__meridalctl_is check" -l notify -d "Show changes on the desktop"
complete -c meridalctl -n "__meridalctl_is disks sensors" -l check -d "Say whether they are fine"
complete -c meridalctl -n "__meridalctl_is disks" -l attributes -d "Also list what each disk keeps of itself"
complete -c meridalctl -n "__meridalctl_is history" -a "(__meridalctl_offer series)"
complete -c meridalctl -n "__meridalctl_is disks" -a "(__meridalctl_offer disks)"
complete -c meridalctl -n "__meridalctl_is call" -a "(__meridalctl_offer methods)"
complete -c meridalctl -n "__meridalctl_is bar" -l format -x -a "waybar polybar i3bar tmux plain" -d "For whom"
complete -c meridalctl -n "__meridalctl_is bar" -l interval -x -d "Seconds between two lines"
complete -c meridalctl -n "__meridalctl_is history" -l range -x -a "$ranges" -d "How far back"
complete -c meridalctl -n "__meridalctl_is history" -l resolution -x -a "auto $ranges" -d "How finely"
complete -c meridalctl -n "__meridalctl_is apps" -l range -x -a "hour day week month year" -d "How far back"
complete -c meridalctl -n "__meridalctl_is apps" -l by -x -a "cpu energy memory disk network" -d "By what"
complete -c meridalctl -n "__meridalctl_is apps" -l group -x -a "(__meridalctl_offer applications)" -d "Only this one, and its course"
complete -c meridalctl -n "__meridalctl_is apps processes" -l user -x -d "Of this user only"
complete -c meridalctl -n "__meridalctl_is apps processes" -l limit -x -d "At most so many"
complete -c meridalctl -n "__meridalctl_is history apps metrics" -l from -x -d "From then on"
complete -c meridalctl -n "__meridalctl_is history apps metrics" -l until -x -d "Until then, not now"
complete -c meridalctl -n "__meridalctl_is history apps sensors fans disks network bandwidth processes" -l csv -d "As comma-separated values"
complete -c meridalctl -n "__meridalctl_is history apps bandwidth" -l svg -r -F -d "Draw it into a file"
complete -c meridalctl -n "__meridalctl_is bandwidth" -l by -x -a "hour day month interface network station" -d "What a row stands for"
complete -c meridalctl -n "__meridalctl_is bandwidth" -l interface -x -a "(__meridalctl_offer interfaces)" -d "Of this interface only"
complete -c meridalctl -n "__meridalctl_is bandwidth" -l all -d "Also of interfaces that are no hardware"
complete -c meridalctl -n "__meridalctl_is help" -a "screen top processes process version ping status uptime sensors fans history battery disks network bandwidth apps at why metrics check call watch bar"
complete -c meridalctl -n "__meridalctl_is at" -a "now yesterday"
complete -c meridalctl -n "__meridalctl_is why" -a "hot loud slow draining busy-disk busy-network memory"
complete -c meridalctl -n "__meridalctl_is why" -l at -x -d "At that moment"
complete -c meridalctl -n "__meridalctl_is metrics" -l openmetrics -d "In the format OpenMetrics 1.0"
complete -c meridalctl -n "__meridalctl_is metrics" -l output -r -F -d "Replace this file"
complete -c meridalctl -n "__meridalctl_is metrics" -l all -d "Also the machine's own figures"
complete -c meridalctl -n "__meridalctl_is metrics" -l groups -x -d "Tell so many applications apart"
complete -c meridalctl -n "__meridalctl_is metrics" -l no-wifi-names -d "Add up Wi-Fi networks"
complete -c meridalctl -n "__meridalctl_is metrics" -l backfill -d "What was recorded, with times"
