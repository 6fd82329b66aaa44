#!/bin/bash
# The access point's side of a client's traffic test in the simulated access point. The daemon starts it:
#
#   cl_test_target.sh SERVER_IP SERVER_MAC CLIENT_IP CLIENT_MAC PROFILE_ID SERVER_PORT
#
# It tells the daemon its process id by an event and waits to be terminated. Two lines go to
# /tmp/sim/cl_test_target.record: "start PID ARGUMENTS" and, when it is terminated, "end PID".
set -u

record=/tmp/sim/cl_test_target.record

mkdir -p /tmp/sim
sleep infinity &
trap 'kill $!; echo "end $$" >>"$record"; exit' TERM
echo "start $$ $*" >>"$record"
/usr/bin/python3 -m sim.bus send VRE.Target.AP.Traffic.PID "$(printf '%s%08x' "${4//:/}" $$)"
wait
