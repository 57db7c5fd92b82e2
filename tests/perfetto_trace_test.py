#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# perfetto_trace_test.py MADE_REPORTS: a trace as a protobuf parser reads it, against the comma-separated report of the
# same records. Exits with 77, saying so, where the parser is missing.
import collections, csv, pathlib, shutil, subprocess, sys, tempfile, time

try:
    import google.protobuf
except ImportError:
    print("skipped: python3-protobuf is not installed")
    sys.exit(77)
if not shutil.which("protoc"):
    print("skipped: protobuf-compiler is not installed")
    sys.exit(77)

figures = ["duration_us", "queue_length_bytes", "peak_at_most_bytes", "latency_us", "drops"]


# The bursts of each queue as (begin, end or None, figures), as a viewer sees them, with its counter's values.
def read(trace):
    tracks, events, defaults, names = {}, collections.defaultdict(list), {}, {}
    for packet in trace.packet:
        sequence = packet.trusted_packet_sequence_id
        if packet.HasField("track_descriptor"):
            tracks[packet.track_descriptor.uuid] = packet.track_descriptor
        if packet.sequence_flags & 1:
            defaults[sequence] = packet.trace_packet_defaults
            names[sequence] = {n.iid: n.name for n in packet.interned_data.debug_annotation_names}
        if packet.HasField("track_event"):
            event, usual = packet.track_event, defaults[sequence].track_event_defaults
            assert packet.sequence_flags & 2 and defaults[sequence].timestamp_clock_id == 1
            track = tracks[usual.track_uuid]
            [counter] = [tracks[uuid] for uuid in usual.extra_counter_track_uuids]
            assert counter.name == track.name + " peak" and counter.counter.unit == 3
            assert tracks[track.parent_uuid].name == "vorn: queue congestion"
            told = {names[sequence][a.name_iid]: a.uint_value for a in event.debug_annotations}
            events[track.name].append((packet.timestamp, event.type, told, *event.extra_counter_values))
    bursts = collections.defaultdict(list)
    for name, of_track in events.items():
        for when, kind, told, counted in of_track:
            if kind == 1:
                assert counted == told.get("queue_length_bytes", 0)
                bursts[name].append((when, None, [told.get(figure) for figure in figures]))
            else:
                begin, end, told = bursts[name][-1]
                assert (kind, end, counted) == (2, None, 0) and when >= begin
                bursts[name][-1] = (begin, when, told)
    return bursts


def expected(records):
    queues = collections.defaultdict(list)
    for record in records:
        begin, lasting = int(record["timestamp_us"]), record["type"] == "start" or record is records[-1]
        end = None if lasting else (begin + int(record["duration_us"])) * 1000
        told = [int(record[figure]) if record[figure] else None for figure in figures]
        queues[record["interface"] + " " + record["queue"]].append((begin * 1000, end, told))
    for of_queue in queues.values():
        for i, ((begin, end, told), (following, *_)) in enumerate(zip(of_queue, of_queue[1:])):
            of_queue[i] = (begin, min(end or following, following), told)  # slices do not overlap
    return queues


with tempfile.TemporaryDirectory() as directory:
    proto = pathlib.Path(__file__).with_name("perfetto_subset.proto")
    subprocess.run(["protoc", "-I", proto.parent, "--python_out", directory, proto], check=True)
    sys.path.insert(0, directory)
    from perfetto_subset_pb2 import Trace
    for count in (150, 100_000):
        spent = subprocess.run([sys.argv[1], directory, str(count)], check=True, capture_output=True, text=True).stdout
        data = pathlib.Path(directory, "trace.pb").read_bytes()
        trace = Trace.FromString(data)
        records = list(csv.DictReader(pathlib.Path(directory, "records.csv").read_text().splitlines()))
        assert len(records) == count + 1 and read(trace) == expected(records)
        clocks = {clock.clock_id: clock.timestamp for clock in trace.packet[0].clock_snapshot.clocks}
        assert clocks.keys() == {1, 3, 6} and clocks[1] == (int(records[-1]["timestamp_us"]) + 2_000_000) * 1000
        assert 0 <= time.clock_gettime_ns(time.CLOCK_BOOTTIME) - clocks[6] < 60e9
        saved = Trace.FromString(pathlib.Path(directory, "saved.pb").read_bytes())
        assert saved.packet[0].clock_snapshot.primary_trace_clock == 1 and sum(map(len, read(saved).values())) == 3
        print(f"{count} bursts: {len(data)} bytes, {int(spent) / 1000} ms of processor time")
    assert len(data) <= 10_000_000 and int(spent) < 500_000 * (10 if "--slow" in sys.argv else 1)
