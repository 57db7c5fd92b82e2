#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The probe in a kernel: bursts of which every packet counts, who sent them, and what becomes of it all when queues, the
# agent or its privileges go.
#
#   probe_test.sh VORN-AGENT VORN-SHOW VORN-BURST
#
# Exits with 77, saying so, where no probe can be had.
set -euo pipefail
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
PATH=$PATH:/usr/sbin:/sbin

if [ -z "${VORN_TEST_SCRATCH:-}" ]; then
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  if ! said=$(unshare --net true 2>&1) || ! said=$(timeout 1 "$1" --stderr --source exact --socket "$scratch/s" 2>&1 || [ $? = 124 ]); then
    echo "skipped: no probe can be had here: $said"
    exit 77
  fi
  VORN_TEST_SCRATCH=$scratch unshare --net --mount-proc --pid --fork --kill-child "$here/probe_test.sh" "$@"
  exit
fi

export TZ=UTC LC_ALL=C.UTF-8
agent_program=$1 show_program=$2 burst=$3
scratch=$VORN_TEST_SCRATCH
socket=$scratch/agent.sock
agent=
as=() # who starts the agent
sender=("$burst")
if chrt --fifo 5 true 2>/dev/null; then sender=(chrt --fifo 5 "$burst"); fi

fail() {
  echo "FAILED: $*" >&2
  tail -n 40 "$scratch/messages" "$scratch/out" >&2 || true
  exit 1
}

vorn-show() { "$show_program" --socket "$socket" "$@"; }

until_true() {
  for _ in {1..200}; do
    if "$@"; then return 0; fi
    sleep 0.02
  done
  fail "never came true: $*"
}

# says PATTERN WORD...: whether vorn-show says such a line.
says() {
  local pattern=$1
  shift
  vorn-show "$@" >"$scratch/out" 2>&1
  grep -qE -- "$pattern" "$scratch/out"
}
must_say() { says "$@" || fail "vorn-show ${*:2}: no line like $1"; }

start_agent() {
  : >"$scratch/messages"
  rm -f "$socket" "$socket.lock"
  "${as[@]}" "$agent_program" --stderr --socket "$socket" "$@" 2>"$scratch/messages" &
  agent=$!
  until_true test -S "$socket"
}
stop_agent() {
  kill "$1" "$agent"
  wait "$agent" 2>/dev/null || true
}

# The sum of a column of the comma-separated history.
sum_of() {
  vorn-show history --csv | awk -F, -v name="$1" 'NR == 1 { for (i = 1; i <= NF; i++) if ($i == name) c = i }
    NR > 1 && $1 == "record" { sum += $c } END { print sum + 0 }'
}
dropped() { tc -s qdisc show dev "$1" root | sed -n 's/.*(dropped \([0-9]*\),.*/\1/p' | head -n 1; }

unshare --net sleep 1000 &
far=$!
until_true sh -c "[ \$(readlink /proc/$far/ns/net) != \$(readlink /proc/self/ns/net) ]"
ip link set lo up
n=0
for link in whole split; do
  n=$((n + 1))
  ip link add "$link" type veth peer name "far-$link" netns "$far"
  nsenter -t "$far" --net ip link set "far-$link" addrgenmode none up
  ip link set "$link" addrgenmode none up
  ip address add "10.0.$n.1/24" dev "$link"
  ip neighbour add "10.0.$n.2" lladdr 02:00:00:00:00:02 dev "$link" nud permanent
  until_true sh -c "ip -o link show $link | grep -q LOWER_UP"
done
tc qdisc add dev whole root tbf rate 100mbit burst 5kb limit 60kb
tc qdisc add dev split root handle 1: htb default 10
tc class add dev split parent 1: classid 1:10 htb rate 50mbit burst 5kb cburst 5kb quantum 1514

# Each burst once, its drops to the packet, and no look at the queues meanwhile.
start_agent --source exact
grep -q 'every packet is seen, by a probe in the kernel$' "$scratch/messages" || fail "the agent does not say what it sees"
[ $((0x$(sed -n 's/^CapEff:\t//p' "/proc/$agent/status") >> 38 & 3)) = 0 ] || fail "the agent keeps its capabilities"
send() { # send LINK COUNT DURATION-MS
  "${sender[@]}" --to "10.0.$([ "$1" = whole ] && echo 1 || echo 2).2" --count "$2" --duration-ms "$3" --gap-ms 20 |
    while read -r start end rest; do echo "$1 - $start $end $rest"; done >>"$scratch/sent"
}
send whole 40 1
send whole 10 0.8
send whole 5 12
sleep 0.1
vorn-show history --csv >"$scratch/records"
awk -f "$here/../scripts/match-bursts" "$scratch/records" "$scratch/sent" >"$scratch/out" || fail "not every burst once"
[ "$(dropped whole)" -gt 0 ] && [ "$(sum_of drops)" = "$(dropped whole)" ] || fail "drops: $(sum_of drops) of $(dropped whole)"
must_say '^agent: .* 1 looks so far$' status
must_say '10\.0\.1\.1:[0-9]+ > 10\.0\.1\.2:9 udp' who

# Frames of every sort, in one burst of five and one of four.
frames() {
  python3 - "$@" <<'PYTHON'
import socket, struct, sys
out = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
out.bind(("whole", 0))
four = lambda rest, fragment=0, protocol=17, options=b"": b"\x08\x00" + struct.pack(
    "!BBHHHBBHII", 0x45 + len(options) // 4, 0, 20 + len(options) + len(rest), 7, fragment, 64, protocol, 0,
    0x0A000101, 0x0A000102) + options + rest
six = lambda rest, following: b"\x86\xdd" + struct.pack("!IHBB", 6 << 28, len(rest), following, 64) + bytes.fromhex(
    "20010db8000000000000000000000001" "20010db8000000000000000000000002") + rest
ports = lambda source, destination: struct.pack("!HH", source, destination) + bytes(1000)
sorts = [four(ports(1111, 53)), four(ports(1112, 54), options=bytes(8)), four(bytes(1000), fragment=185),
         six(ports(2222, 443), 17), b"\x81\x00\x00\x07" + four(ports(3333, 80)),
         b"\x81\x00\x00\x08" + six(bytes([6, 0, 0, 0, 0, 0, 0, 1]) + ports(4444, 22), 44), b"\x88\xb5" + bytes(800),
         b"\x08\x06" + bytes(700), four(bytes(600), protocol=47)]
for _ in range(8):
    for sort in sys.argv[1:]:
        out.send(bytes.fromhex("020000000002020000000001") + sorts[int(sort)])
PYTHON
}
if command -v python3 >/dev/null; then
  frames 0 1 2 3 4
  sleep 0.1
  frames 5 6 7 8
  for flow in '10\.0\.1\.1:1111 > 10\.0\.1\.2:53 udp' '10\.0\.1\.1:1112 > 10\.0\.1\.2:54 udp' '10\.0\.1\.1 > 10\.0\.1\.2 udp fragment' \
    '\[2001:db8::1\]:2222 > \[2001:db8::2\]:443 udp' '10\.0\.1\.1:3333 > 10\.0\.1\.2:80 udp vlan 7' \
    '\[2001:db8::1\]:4444 > \[2001:db8::2\]:22 tcp vlan 8' 'ethertype 0x88b5' 'arp' '10\.0\.1\.1 > 10\.0\.1\.2 gre'; do
    until_true says " $flow\$" who
  done
fi

# What stands in a class is looked at while its root is congested, and only then.
send split 5 8
until_true says 'split +1:10 ' history
looks() { vorn-show status | sed -n 's/^agent:.* \([0-9]*\) looks so far$/\1/p'; }
sleep 0.2
before=$(looks)
sleep 0.3
[ "$(looks)" = "$before" ] && [ "$before" -gt 5 ] || fail "looks: $before, later $(looks)"

# A discipline that is replaced in a burst ends it, and takes along what waited.
tc qdisc replace dev whole root tbf rate 1mbit burst 5kb limit 300kb
"$burst" --to 10.0.1.2 --rate-mbit 100 --duration-ms 8 >"$scratch/burst"
waiting=$(tc -s qdisc show dev whole root | sed -n 's/.*backlog [0-9]*K*b \([0-9]*\)p.*/\1/p' | head -n 1)
tc qdisc replace dev whole root handle 9: bfifo limit 60kb
until_true says 'whole +root .* [1-9][0-9]*$' history --count 1
lost=$(awk '{ print $NF }' <(grep -E '^20.* whole ' "$scratch/out" | head -n 1))
[ "$lost" -le "$waiting" ] && [ "$lost" -ge $((waiting - 8)) ] || fail "$waiting waited, $lost are lost"

# Queues come and go by the hundred while bursts are sent, here and in a namespace that is not the agent's.
tc qdisc replace dev whole root tbf rate 100mbit burst 5kb limit 60kb
recorded() { vorn-show history --csv | grep -c '^record,'; }
before=$(recorded)
for i in {1..200}; do
  ip link add "x$i" type veth peer name "y$i" && ip link set "x$i" up && tc qdisc add dev "x$i" root pfifo && ip link del "x$i"
done &
churn=$!
nsenter -t "$far" --net sh -c 'ip address add 10.0.1.2/24 dev far-whole; ip neighbour add 10.0.1.1 lladdr 02:00:00:00:00:01 dev far-whole nud permanent
  tc qdisc add dev far-whole root tbf rate 100mbit burst 5kb limit 60kb'
nsenter -t "$far" --net "$burst" --to 10.0.1.1 --count 10 --duration-ms 2 --gap-ms 20 >/dev/null &
"${sender[@]}" --to 10.0.1.2 --count 30 --duration-ms 2 --gap-ms 20 >/dev/null
wait "$churn"
sleep 0.1
[ "$(recorded)" = $((before + 30)) ] || fail "not 30 records more than $before: $(recorded)"
must_say '^0 bursts lost' status

# Nothing stays in the kernel of an agent that is killed.
loaded=$(sed -n 's/^prog_id:\t//p' "/proc/$agent/fdinfo/"* | sort -u)
[ "$(wc -w <<<"$loaded")" -ge 5 ] || fail "programs of the agent: $loaded"
stop_agent -KILL
for id in $loaded; do until_true sh -c "! bpftool prog show id $id >/dev/null 2>&1"; done

# Networks only, or nothing, of who sent it; and an agent that may not load a probe says so, and looks.
start_agent --flow-prefix 24,64
"$burst" --to 10.0.1.2 --duration-ms 2 >/dev/null
until_true says '10\.0\.1\.0/24:[0-9]+ > 10\.0\.1\.0/24:9 udp' who
stop_agent -TERM
start_agent --no-flows
"$burst" --to 10.0.1.2 --duration-ms 2 >/dev/null
until_true says ' whole ' history
! says ' udp' who || fail "flows were counted all the same"
stop_agent -TERM
chmod 777 "$scratch"
as=(setpriv --reuid 65534 --regid 65534 --clear-groups --inh-caps=-all --bounding-set=-all)
! "${as[@]}" "$agent_program" --stderr --source exact --socket "$socket" 2>"$scratch/out" || fail "exact without a privilege"
grep -q 'CAP_BPF' "$scratch/out" || fail "no reason is given"
start_agent
must_say '^not every packet is seen: no privilege' status
must_say '^looking every' status
stop_agent -TERM
