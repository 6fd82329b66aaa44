#!/bin/bash
# The traffic-control script of the simulated access point. The daemon's bandwidth worker runs it:
#
#   tc_wrapper.sh limit profile ID bss up KBIT down KBIT priority N
#   tc_wrapper.sh limit profile ID sta MAC classid HEX up KBIT down KBIT bssid MAC priority N
#   tc_wrapper.sh clear profile ID bss priority N
#   tc_wrapper.sh clear profile ID sta MAC classid HEX bssid MAC priority N
#
# Every run appends its arguments, one line, to /tmp/sim/tc_wrapper.record. Where tc and the interface pair bwdown, bwup
# are there, it drives the kernel's traffic control: what clients receive leaves by bwdown and is told by its
# destination address, what they send leaves by bwup and is told by its source address. Each has an HTB class a profile,
# with a class a client below it. A limit below 1 means none.
#
# /tmp/sim/tc_wrapper.fault holds one line: TIMES (a number, or "always") and what the next runs do instead:
#   2 exit 7      end with that status
#   1 signal KILL end by that signal
#   1 hang        never end
set -u

record=/tmp/sim/tc_wrapper.record
fault=/tmp/sim/tc_wrapper.fault

mkdir -p /tmp/sim
echo "$*" >>"$record"

if read -r times kind detail 2>/dev/null <"$fault"; then
    case $times in
        always) ;;
        1) rm "$fault" ;;
        *) echo "$((times - 1)) $kind $detail" >"$fault" ;;
    esac
    case $kind in
        exit) exit "$detail" ;;
        signal) kill -s "$detail" $$ ;;
        hang) exec sleep infinity ;;
    esac
fi

command -v tc >/dev/null && ip link show bwdown >/dev/null 2>&1 || exit 0

action=$1 profile=$3 kind=$4
shift 4
if [ "$kind" = sta ]; then
    mac=$1
    shift
fi
declare -A given
while [ $# -ge 2 ]; do
    given[$1]=$2
    shift 2
done

# class_of ID: the kernel knows 65,535 classes an interface, so the profile's number modulo 256 is the upper half of the
# class's and the id within the profile the lower. The filter of a class has that number as its priority, by which it is
# found again.
class_of() {
    printf '1:%x' $(((profile & 255) * 256 + ($1 & 255)))
}

bss=$(class_of 1)
client=$(class_of $((16#${given[classid]:-1})))

# priority_of CLASS
priority_of() {
    echo $((16#${1#1:}))
}

# set_class DEVICE PARENT CLASS KBIT
set_class() {
    local rate=$4
    [ "$rate" -ge 1 ] || rate=10000000
    tc class replace dev "$1" parent "$2" classid "$3" htb rate "${rate}kbit" quantum 1514
}

has_class() {
    tc class show dev "$1" | grep -q "^class htb $2 "
}

# limit_device DEVICE KBIT ADDRESS: the address is "src" or "dst"
limit_device() {
    tc qdisc show dev "$1" | grep -q '^qdisc htb 1: root' || tc qdisc add dev "$1" root handle 1: htb || return
    if [ "$kind" = bss ]; then
        set_class "$1" 1: "$bss" "$2"
        return
    fi
    has_class "$1" "$bss" || set_class "$1" 1: "$bss" 0 || return
    set_class "$1" "$bss" "$client" "$2" || return
    tc filter del dev "$1" parent 1: pref "$(priority_of "$client")" 2>/dev/null
    tc filter add dev "$1" parent 1: protocol all pref "$(priority_of "$client")" u32 match ether "$3" "$mac" flowid "$client"
}

# clear_class DEVICE CLASS: what is not there is cleared already
clear_class() {
    has_class "$1" "$2" || return 0
    tc filter del dev "$1" parent 1: pref "$(priority_of "$2")" 2>/dev/null
    tc class del dev "$1" classid "$2"
}

clear_device() {
    if [ "$kind" = sta ]; then
        clear_class "$1" "$client"
        return
    fi
    local class
    for class in $(tc class show dev "$1" | sed -n 's/^class htb \(1:[0-9a-f]*\) parent .*/\1/p'); do
        [ $(($(priority_of "$class") / 256)) = $((profile & 255)) ] || continue
        clear_class "$1" "$class" || return
    done
    clear_class "$1" "$bss"
}

if [ "$action" = limit ]; then
    limit_device bwdown "${given[down]}" dst && limit_device bwup "${given[up]}" src
else
    clear_device bwdown && clear_device bwup
fi
