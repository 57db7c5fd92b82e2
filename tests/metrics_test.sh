#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Bursts on a real link, the agent, the exporter, and a Prometheus that scrapes it, in a network namespace; then the
# alert rules, and what the dashboard asks for.
#
#   metrics_test.sh VORN-AGENT VORN-SHOW VORN-BURST VORN-EXPORTER
#
# Exits with 77, saying so, where something that it stands on is not here.
set -euo pipefail
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
PATH=$PATH:/usr/sbin:/sbin

if [ -z "${VORN_TEST_SCRATCH:-}" ]; then
  for program in prometheus promtool curl python3; do
    command -v "$program" >/dev/null || { echo "skipped: $program is not here" && exit 77; }
  done
  unshare="unshare --net"
  $unshare true 2>/dev/null || unshare="unshare --user --map-root-user --net"
  $unshare sh -c 'ip link add t0 type veth peer name t1 && tc qdisc add dev t0 root tbf rate 100mbit burst 5kb limit 300kb' ||
    { echo "skipped: no network namespace with a shaped link can be had here" && exit 77; }
  VORN_TEST_SCRATCH=$(mktemp -d)
  export VORN_TEST_SCRATCH
  status=0
  $unshare "$here/metrics_test.sh" "$@" || status=$?
  rm -rf "$VORN_TEST_SCRATCH"
  exit "$status"
fi

agent_program=$1 show_program=$2 burst=$3 exporter_program=$4
scratch=$VORN_TEST_SCRATCH
metrics=http://127.0.0.1:9753/metrics
running=()
trap '[ ${#running[@]} -eq 0 ] || kill -KILL "${running[@]}" 2>/dev/null || true' EXIT

fail() {
  echo "FAILED: $*" >&2
  tail -n 20 "$scratch"/*.log >&2 || true
  exit 1
}

until_true() {
  for _ in {1..300}; do
    if "$@"; then return 0; fi
    sleep 0.1
  done
  fail "never came true: $*"
}

# start NAME PROGRAM...: $started is its process.
start() {
  local name=$1
  shift
  "$@" >>"$scratch/$name.log" 2>&1 &
  started=$!
  running+=("$started")
}

# sends N: so many bursts of 5 ms on t0.
sends() { "$burst" --to 10.9.9.2 --count "$1" --duration-ms 5 --gap-ms 40 >/dev/null; }

# What Prometheus answers, the value alone.
query() { promtool query instant http://127.0.0.1:9090 "$1" 2>/dev/null | sed -nE 's/^.* => ([^ ]+) @.*$/\1/p'; }
is() { [ "$(query "$2")" = "$1" ]; }

# What the recorder has counted so far is in $bursts, and what Prometheus knows, once they are over.
counted() {
  bursts=$("$show_program" --socket "$scratch/agent.sock" get 'portData[t0].portMetaData[0].counter')
  until_true is "$bursts" "vorn_bursts_total$queue"
  until_true is "$bursts" "vorn_burst_peak_bytes_count$queue"
  until_true is "$bursts" "vorn_burst_duration_seconds_count$queue"
}

start_agent() {
  start agent "$agent_program" --stderr --socket "$scratch/agent.sock" --config /dev/null --state-dir "$scratch/state" --fifo 10
  agent=$started
  until_true test -S "$scratch/agent.sock"
}

ip link set lo up
ip link add t0 type veth peer name t1
for link in t0 t1; do ip link set "$link" up; done
ip address add 10.9.9.1/24 dev t0
ip neighbour add 10.9.9.2 lladdr 02:00:00:00:00:01 dev t0
tc qdisc add dev t0 root tbf rate 100mbit burst 5kb limit 300kb

start_agent
start exporter "$exporter_program" --socket "$scratch/agent.sock"
cat >"$scratch/prometheus.yml" <<END
global: {scrape_interval: 1s, evaluation_interval: 1s}
rule_files: [$here/../packaging/alerts/vorn.rules.yml]
scrape_configs: [{job_name: vorn, static_configs: [{targets: ["127.0.0.1:9753"]}]}]
END
start prometheus prometheus --config.file="$scratch/prometheus.yml" --storage.tsdb.path="$scratch/storage" \
  --web.listen-address=127.0.0.1:9090

# Every burst counts, and in each histogram of what is known at its end. Where others keep the processors busy a burst
# may be sent in two pieces, or two be seen as one, so there are three attempts; what the recorder has counted by itself
# is what Prometheus knows, each time.
queue='{device="t0",queue="root",kind="tbf"}'
bursts=0 exact=false
for _ in 1 2 3; do
  before=$bursts
  sends 30
  counted
  [ $((bursts - before)) -ne 30 ] || { exact=true && break; }
done
$exact || fail "30 bursts are $((bursts - before))"
is 1 "(vorn_congested_seconds_total$queue / vorn_bursts_total > 0.003) < bool 0.02" ||
  fail "$bursts bursts of 5 ms lasted $(query "vorn_congested_seconds_total$queue") s"
is 0 "vorn_queue_congested$queue" || fail "it is not congested now"

# The older text is as clean as the other one; both come as what they are.
curl -sf "$metrics" >"$scratch/text"
promtool check metrics <"$scratch/text" || fail "promtool finds fault"
"$show_program" --socket "$scratch/agent.sock" metrics | tail -n 1 | grep -qx '# EOF' || fail "no end of the metrics"
accepts() { curl -sf -o "$scratch/answer" -w '%{content_type}' -H "Accept: $1" "$metrics"; }
[ "$(accepts 'application/openmetrics-text;version=1.0.0,text/plain;q=0.5')" = 'application/openmetrics-text; version=1.0.0; charset=utf-8' ] || fail "OpenMetrics"
grep -qx '# EOF' "$scratch/answer" || fail "OpenMetrics without an end"
[ "$(accepts 'text/plain, application/openmetrics-text;q=0.9')" = 'text/plain; version=0.0.4; charset=utf-8' ] || fail "text is preferred"
[ "$(accepts 'application/openmetrics-text;q=0')" = 'text/plain; version=0.0.4; charset=utf-8' ] || fail "OpenMetrics is refused"
code() { curl -s -o "$scratch/answer" -w '%{http_code}' "$@"; }
[ "$(code "${metrics%metrics}") $(code "$metrics/x") $(code -d x "$metrics")" = "200 404 405" ] || fail "answers"

# What the dashboard and the rules ask for is there; what the dashboard asks can be asked.
named=$(cat "$here/../dashboards/vorn.json" "$here/../packaging/alerts/vorn.rules.yml" | grep -oE '\bvorn_[a-z_]+')
for name in $named; do grep -qE "^$name[ {]" "$scratch/text" || fail "there is no $name"; done
python3 - "$here/../dashboards/vorn.json" >"$scratch/queries" <<'END'
import json, re, sys
for panel in json.load(open(sys.argv[1]))["panels"]:
    for target in panel.get("targets", []):
        print(re.sub(r"\$__(rate_interval|range)", "1m", target["expr"]).replace('"$job"', '".*"').replace('"$instance"', '".*"').replace('"$device"', '".*"'))
END
while read -r expression; do
  promtool query instant http://127.0.0.1:9090 "$expression" >/dev/null || fail "the dashboard asks $expression"
done <"$scratch/queries"
[ "$(wc -l <"$scratch/queries")" -gt 10 ] || fail "the dashboard asks for next to nothing"
promtool test rules "$here/../packaging/alerts/vorn.rules.test.yml" || fail "the alert rules"

# An agent that is gone is told of, and totals go on behind it.
kill "$agent" && wait "$agent"
[ "$(code "$metrics")" = 503 ] && grep -q 'cannot reach the agent' "$scratch/answer" || fail "no agent: $(cat "$scratch/answer")"
until_true is 0 'up{job="vorn"}'
start_agent
before=$bursts
sends 10
counted
[ "$bursts" -gt "$before" ] || fail "totals begin anew: $bursts"
[ "$(curl -sf "$metrics" | grep -c 'device="t0"')" -le 40 ] || fail "more than 40 series a queue"

"$exporter_program" --listen 127.0.0.1:9753 2>"$scratch/said" && fail "two at one address"
grep -q 'cannot listen at 127.0.0.1:9753: Address already in use' "$scratch/said" || fail "$(cat "$scratch/said")"
