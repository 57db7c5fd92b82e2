#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Congested queues, the agent that records them and the client that shows them, all for real, in network namespaces
# of their own: once with root's privileges, once as an unprivileged user has them, as far as either can be had.
#
#   end_to_end_test.sh VORN-AGENT VORN-SHOW VORN-BURST
#
# Exits with 77, saying so, where neither can.
set -euo pipefail
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
PATH=$PATH:/usr/sbin:/sbin

if [ -z "${VORN_TEST_SCRATCH:-}" ]; then
  probe='ip link add t0 type veth peer name t1 && ip link set t0 up && tc qdisc add dev t0 root tbf rate 100mbit burst 5kb limit 300kb'
  runs=0
  for unshare in "unshare --net" "unshare --user --map-root-user --net"; do
    if ! said=$($unshare sh -c "$probe" 2>&1); then
      echo "left out: $unshare: $said"
      continue
    fi
    echo "== $unshare"
    scratch=$(mktemp -d)
    status=0
    VORN_TEST_SCRATCH=$scratch $unshare "$here/end_to_end_test.sh" "$@" || status=$?
    rm -rf "$scratch"
    [ "$status" -eq 0 ] || exit 1
    runs=$((runs + 1))
  done
  [ "$runs" -gt 0 ] || { echo "skipped: no network namespace with shaped links can be had here"; exit 77; }
  exit 0
fi

export TZ=UTC LC_ALL=C.UTF-8
agent_program=$1 show_program=$2 burst=$3
scratch=$VORN_TEST_SCRATCH
socket=$scratch/agent.sock
agent=
trap '[ -z "$agent" ] || kill -KILL "$agent"' EXIT

fail() {
  {
    echo "FAILED: $*"
    tail -n 20 "$scratch/messages" "$scratch/out" || true
  } >&2
  exit 1
}

vorn-show() { "$show_program" --socket "$socket" "$@"; }
vorn-agent() { "$agent_program" --socket "$socket" "$@"; }

# show STATUS PATTERN WORD...: vorn-show must end with STATUS and say a line that matches the extended regular
# expression. What it said is in $scratch/out.
show() {
  local wanted=$1 pattern=$2 status=0
  shift 2
  vorn-show "$@" >"$scratch/out" 2>&1 || status=$?
  [ "$status" -eq "$wanted" ] || fail "vorn-show $* ended with $status, not $wanted"
  grep -qE -- "$pattern" "$scratch/out" || fail "vorn-show $*: no line like $pattern"
}

# Lines of the last report that match.
lines() { grep -cE -- "$1" "$scratch/out" || true; }

# messages PATTERN NUMBER: so many of the agent's messages must match, or any number above 0.
messages() {
  local found
  found=$(grep -cE -- "$1" "$scratch/messages") && [ "$found" -eq "${2:-$found}" ] || fail "messages like $1: $found"
}

until_true() {
  for _ in {1..200}; do
    if "$@"; then return 0; fi
    sleep 0.02
  done
  fail "never came true: $*"
}

start_agent() {
  "$agent_program" --stderr --source poll --socket "$socket" --config "$scratch/agent.toml" --state-dir "$scratch/state" --save-interval 1 --high 131072 --low 32768 2>>"$scratch/messages" &
  agent=$!
  until_true vorn-show status >"$scratch/out" 2>&1
}

# end_agent SIGNAL STATUS: the agent must end with STATUS when it gets SIGNAL.
end_agent() {
  local status=0
  kill "-$1" "$agent"
  wait "$agent" 2>/dev/null || status=$?
  agent=
  [ "$status" -eq "$2" ] || fail "SIG$1 ended the agent with $status, not $2"
}

# Two links of 20 Mbit/s and 300 kB, slow enough that an agent on a busy machine misses no burst; what they carry
# ends at the other side. One name looks like an option of the report vocabulary, the other like a pattern for its
# neighbour.
add_link() {
  ip link add "$1" type veth peer name "$2"
  ip link set "$2" addrgenmode none up
  ip link set "$1" addrgenmode none up
  ip address add "10.0.$3.1/24" dev "$1"
  ip neighbour add "10.0.$3.2" lladdr 02:00:00:00:00:02 dev "$1" nud permanent
  tc qdisc add dev "$1" root tbf rate 20mbit burst 5kb limit 300kb
}
add_link br-c0 far0 1
add_link up.1 upx1 2
until_true sh -c '! ip -o link show | grep -q NO-CARRIER'

send() {
  local interface=$1
  shift
  "$burst" --rate-mbit 20 "$@" | sed "s/^/$interface - /" >>"$scratch/sent"
}
drained() { ! tc -s qdisc show | grep -q 'backlog [1-9]'; }

followers=()
follow() {
  "$show_program" --socket "$socket" follow "${@:2}" >"$scratch/$1" 2>>"$scratch/follow.err" &
  followers+=($!)
}

echo >"$scratch/agent.toml"
start_agent
follow follow.csv --csv --interface br-c0 --count 4
follow follow.json --json --drops --count 1
vorn-show --follow 2>>"$scratch/follow.err" | head -n 2 >"$scratch/follow.head" &
followers+=($!)
follows() { vorn-show status | grep -q ", $1 follow, "; }
until_true follows 3
send br-c0 --to 10.0.1.2 --duration-ms 80 --count 3
send up.1 --to 10.0.2.2 --duration-ms 60 --count 2
send br-c0 --to 10.0.1.2 --duration-ms 150 # more than the queue holds
until_true drained

# What was sent is what was recorded, each burst in its place and time.
all_recorded() {
  show 0 '^record' --csv
  awk -f "$here/../scripts/match-bursts" "$scratch/out" "$scratch/sent" >"$scratch/match"
}
until_true all_recorded
grep -qx 'bursts sent 6, recorded 6' "$scratch/match" || fail "a record without a burst: $(cat "$scratch/match")"
show 0 '; 6 bursts seen$' status
show 0 '^type,' --csv
[ "$(sed -n '/^type,/=' "$scratch/out")" = 1 ] || fail "more than column names above the records"
show 0 ' br-c0 ' --interface br-c0
[ "$(lines ' br-c0 ')" -ge 4 ] && [ "$(lines 'up\.1')" -eq 0 ] || fail "--interface br-c0"
show 0 ' br-c0 ' --match 'br-[a-c]0' --count 2
[ "$(lines ' br-c0 ')" -eq 2 ] || fail "--match, --count"
show 0 ' br-c0 .* [1-9][0-9]* *$' --drops # of the burst that was too long
show 0 '^up\.1,root,0,[2-9]$' stats --csv --interface up.1
show 0 '^global,' global --csv
# When, which queue, who lost packets.
show 0 '^br-c0 +root +4 .* [1-9][0-9]* 20' top --last 1min --count 1
show 0 '^br-c0 +root +│' timeline
[ "$(lines '!')" -ge 2 ] || fail "no drops in the picture"
show 0 '^record,br-c0' --csv --drops --sort drops --min-duration 20ms --queue root
[ "$(lines '^record')" = 1 ] || fail "--drops --csv"
last=$(sed -n 's/^record,br-c0,root,0,[^,]*,\([0-9]*\)\([0-9]\{6\}\),.*/\1.\2/p' "$scratch/out")
show 0 ' br-c0 ' --since "@$last" --until "@$last"
show 0 '^Nothing after\.$' --since +1min
show 2 'is no time' --since noon
# Who followed saw what closed, and only what it had asked for.
wait "${followers[@]}" && [ ! -s "$scratch/follow.err" ] || fail "following: $(cat "$scratch/follow.err")"
[ "$(grep -c '^record,br-c0,' "$scratch/follow.csv"), $(wc -l <"$scratch/follow.csv")" = "4, 5" ] || fail "follow --csv"
grep -qE '^\{.*"interface":"br-c0",.*"drops":[1-9].*"open":false\}$' "$scratch/follow.json" || fail "follow --json"
grep -q ' br-c0 ' "$scratch/follow.head" || fail "follow"
show 2 'does not apply to follow' follow --last 5
# JSON is what its schema says.
for report in history top stats global timeline; do
  show 0 '^\[\{' $report --json
  cp "$scratch/out" "$scratch/$report.json"
done
if python3 -c 'import jsonschema' 2>/dev/null; then
  python3 - "$here/../docs/report.schema.json" "$scratch" <<'PYTHON' || fail "JSON against its schema"
import json, jsonschema, sys
schema = json.load(open(sys.argv[1]))
for report in ("history", "top", "stats", "global", "timeline"):
    rows = json.load(open(f"{sys.argv[2]}/{report}.json"))
    jsonschema.Draft202012Validator({**schema, "$ref": f"#/$defs/{report}"}, format_checker=jsonschema.FormatChecker()).validate(rows)
    for row in rows:
        assert set(row) == set(schema["$defs"][schema["$defs"][report]["items"]["$ref"].split("/")[-1]]["properties"]), row
PYTHON
else
  echo "left out: no JSON is compared with its schema: there is no python3-jsonschema here"
fi
# A page and a trace come whole, from the agent; its trace has the clocks of this machine.
vorn-show timeline --html "$scratch/page.html"
[ "$(head -c 15 "$scratch/page.html")$(tail -c 8 "$scratch/page.html")" = '<!DOCTYPE html></html>' ] || fail "no whole page"
grep -q '"names":\[.*"br-c0"' "$scratch/page.html" || fail "a page without its records"
vorn-show history --trace "$scratch/trace"
grep -qa 'br-c0 root peak' "$scratch/trace" || fail "a trace without its tracks"
messages QUEUEMONITOR_LENGTH_OVER_THRESHOLD

# How vorn-show ends.
show 1 'unmatched square bracket' raw '-ibr['
show 1 'no interface matches no' --interface no-such0
show 2 'unmatched square bracket' --match 'br['
show 2 'no-such-option' --no-such-option
socket=$scratch/nobody show 3 'cannot reach the agent' status
{ sleep 0.1; vorn-show 2>"$scratch/err" && [ ! -s "$scratch/err" ]; } | true || fail "a reader that has left by then"
status=0
vorn-show >&- 2>"$scratch/out" || status=$?
[ "$status" = 1 ] && [ "$(lines 'standard output')" = 1 ] || fail "a closed output: $status"

# The documents: each command is accepted, and refused by the agent just where they show it; each title of a sample is
# printed. The links have other names here, what stands for something else (NAME) is left out, and an agent finds its
# place taken.
(cd "$here/.." && awk '
  FNR == 1 || /^```/ { inside = FNR == 1 ? 0 : !inside }
  !inside { for (rest = $0; match(rest, /`vorn-(agent|show)[^`]*`/); rest = substr(rest, RSTART + RLENGTH)) add(substr(rest, RSTART + 1, RLENGTH - 2)) }
  inside && /^([$] )?(sudo )?vorn-(agent|show)( |$)/ { add($0) }
  inside && /^vorn-show: the agent says/ { status[n] = 1 }
  function add(command) {
    sub(/^([$] )?(sudo )?/, "", command); sub(/(   *[^ ].*| &)$/, "", command)
    if (command ~ /NAME|PATH|DIR|FILE|follow/) return
    gsub(/uplink/, "up.1", command); gsub(/access|eth0/, "br-c0", command)
    status[++n] = command ~ /^vorn-agent/ && command !~ /--(help|check-config)/ ? 1 : 0; commands[n] = command
  }
  END { for (i = 1; i <= n; i++) print status[i], commands[i] }' README.md docs/*.md | sort -u) >"$scratch/commands"
[ "$(wc -l <"$scratch/commands")" -ge 25 ] || fail "the documents have no commands"
while read -r wanted command; do
  status=0
  eval "$command" >"$scratch/out" 2>&1 || status=$?
  [ "$status" -eq "$wanted" ] || fail "$command, of the documents, ended with $status, not $wanted"
done <"$scratch/commands"
show 0 '^400$' get numSharedChunks # as one of them has it
messages 'user 0: set numSharedChunks 400' 1
show 0 '"looks":[1-9][0-9]*,.*"interfaces":\[\{"name":"br-c0","records_lost":0,' status --json
show 0 '"br-c0":.*"alwaysLog".*"up\.1":.*"alwaysLog"' get portData --all --json
for report in "" --drops --latency global stats status top timeline --help --csv "stats --csv" "top --csv" "who --csv"; do
  # shellcheck disable=SC2086  # words
  show 0 '' $report
  [[ $report = *--csv ]] || [ "$(lines '.{101}')" = 0 ] || fail "lines of vorn-show $report do not fit"
  cat "$scratch/out"
done >"$scratch/reports"
vorn-agent --help >"$scratch/out"
[ "$(lines '.{101}')" = 0 ] || fail "lines of vorn-agent --help do not fit"
grep -hE '^(Time \(|Interface  |type,|interface,queue)' "$here/../README.md" "$here"/../docs/*.md | sort -u | while read -r title; do
  grep -Fxq -- "$title" "$scratch/reports" || fail "a title of the documents is not printed: $title"
done

# reload PATTERN LINE...: a new configuration, of which a message that matches must tell.
reload() {
  local pattern=$1
  shift
  printf '%s\n' "$@" >"$scratch/agent.toml"
  kill -HUP "$agent"
  until_true grep -qE -- "$pattern" "$scratch/messages"
}
has_said() { show 0 "" "${@:2}" && [ "$(lines "$1")" = 1 ]; }
reload 'again: port-threshold, log-interval changed$' 'log-interval = 0.01' 'port-threshold = ["up.?=900000,4000"]'
send up.1 --to 10.0.2.2 --duration-ms 25
until_true grep -q 'OVER_THRESHOLD.* up\.1 .* low threshold of 4000' "$scratch/messages"
reload 'refused: .*/agent.toml:2: an array without an end$' 'low = 1' 'port-threshold = ['
show 0 '^port-threshold = ."up.[?]=900000,4000". *# .*/agent\.toml:2$' config
show 0 '^low = 32768 *# command line$' config
reload 'again: enabled, port-threshold, .* at the next start: trace, pool$' 'enabled = false' 'pool = 20' 'trace = 1'
until_true has_said '^switched off' status
reload 'again: enabled changed$' ''
until_true has_said '^looking every 1.00 ms .1.00 ms asked, [1-9]' status
show 0 '; 7 bursts seen$' status
reload 'again: interval, coalesce, exclude changed$' 'interval = 2' 'coalesce = 2000' 'exclude = "br-*"'
until_true has_said '^1 queue, ' status
send up.1 --to 10.0.2.2 --duration-ms 60 --count 2
until_true drained
until_true has_said '; 8 bursts seen$' status
reload 'again: interval, start-threshold, coalesce, exclude changed$' 'start-threshold = 500000'
until_true has_said '^2 queues, .* 8 bursts seen$' status
send br-c0 --to 10.0.1.2 --duration-ms 60
until_true drained
show 0 ' 8 bursts seen$' status

# How the agent starts and ends.
for signal in USR1 USR2 ALRM PROF RTMIN; do kill "-$signal" "$agent"; done
show 0 '^failures: none$' status
refused() { ! vorn-agent "$@" 2>>"$scratch/messages" || fail "an agent starts with $*"; }
refused # its place is taken
socket=$scratch/other.sock refused --pool 0
socket=$scratch/other.sock SIM_NUM_SHARED_CHUNKS=0 refused
# What was recorded outlives a crash, an end in order and the machine: a report is the same but for its time.
report() { "$show_program" "$@" --all | sed '/^Report generated/d'; }
same_report() { report "$@" >"$scratch/out" && cmp -s "$scratch/before" "$scratch/out" || fail "another report: $*"; }
report --socket "$socket" >"$scratch/before"
saved() { show 0 '^history: kept in .*; written [1-9][0-9]* times, failed 0 times$' status; }
saved
follow follow.csv --csv --count 1
until_true follows 1
vorn-show save "$scratch/ticket"
sleep 1.5 # the interval
end_agent KILL 137
[ -S "$socket" ] || fail "nothing was left behind for the next agent"
start_agent
show 0 '^not recorded: from 20.* to 20.* \(UTC, \+00:00\)$' status
same_report --socket "$socket"

end_agent QUIT 0
start_agent
same_report --socket "$socket"
end_agent TERM 0
same_report --file "$scratch/ticket"
head -c 300 "$scratch/ticket" >"$scratch/state/history.vorn"
echo >"$scratch/agent.toml"
start_agent
messages 'damaged at byte .*put aside as .*damaged-1$' 1
status=0
"$show_program" --file "$scratch/state/history.vorn.damaged-1" >"$scratch/out" 2>&1 || status=$?
[ "$status" = 1 ] && [ "$(lines 'damaged at byte .* is shown$')" = 1 ] || fail "--file, damaged: $status"
"$show_program" --file "$scratch/state/history.vorn.damaged-1" --trace "$scratch/part" 2>"$scratch/out" && fail "--trace, damaged"
[ -s "$scratch/part" ] || fail "a trace of a damaged file: none"
until_true follows 1
send up.1 --to 10.0.2.2 --duration-ms 60
wait "${followers[-1]}" && grep -q '^record,up.1,' "$scratch/follow.csv" || fail "following a new agent"
grep -q 'waiting for it to come back$' "$scratch/follow.err" && grep -q 'the agent is back' "$scratch/follow.err" || fail "nothing said of it"
end_agent TERM 0
[ ! -e "$socket" ] || fail "the socket was left behind"
echo "ok"
