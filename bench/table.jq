# The table, in Markdown, from what Google Benchmark wrote: $alone and $road.
def digits(n): if . == 0 then 0 else pow(10; n - 1 - (fabs | log10 | floor)) as $f | . * $f | round / $f end;
def ms: "\(. * 1e3 | digits(3)) ms";
def us: "\(. / 1e3 | digits(3)) µs";
def goal(limit; unit): "at most \(limit)\(unit): " + if . <= limit then "met" else "missed" end;
if any($alone[0].benchmarks[], $road[0].benchmarks[]; .error_occurred) then error("a benchmark failed") else . end
| [$alone[0].benchmarks[], $road[0].benchmarks[] | select(.aggregate_name == "median")] as $medians
| ($medians | map({(.run_name | split("/iter")[0]): .}) | add) as $by
| ($medians | map(select(.rows)) | sort_by(.rows)) as $reports
| ["measured", "case", "library", "beside it", "result", "goal"], [range(6) | "---"],
  ($reports[] | ["report beside the bare loop", .rows, (.library | ms), (.loop | ms), (.["loop ratio"] | digits(4)),
      (.["loop ratio"] | goal(1.03; ""))]),
  ($reports | [("library", "loop") as $way | (.[-1][$way] - .[0][$way]) / (.[-1].rows - .[0].rows)]
      | ["growth of both", "per row", (.[0] | ms), (.[1] | ms), (.[0] / .[1] | digits(4)), ""]),
  (("shell", "Perl") as $way | $reports[] | select(.rows == (1, 8, 64, 512))
      | ["report beside a \($way) script", .rows, (.library | ms), (.[$way] | ms), (.["\($way) ratio"] | digits(3)), ""]),
  ((["report", 512, "row of a report"], ["load", 1, "load of the cache"], ["sets", 2, "VLAN set on or off"]) as [$name, $parts, $case]
      | $by["alone/\($name)/library"] as $all | $by["alone/\($name)/stream"].cpu_time as $stream
      | (($all.cpu_time - $stream) / $all.runs) as $each
      | ["library beside its stream", $case, ($all.cpu_time / $parts | us), ($stream / $parts | us),
          "\($each | us) per client run", ($each / 1e3 | goal(3; " µs"))],
        ["allocations", $case, ($all.allocations / $parts | digits(3)), "", "\($all.runs / $parts | digits(3)) client runs", ""]),
  ["one client run", "wall time", "", ($by["road/run"].client | ms), "\($by["road/run"].shell | ms) without the client", ""],
  ["one refresh", "processor time", ($by["road/refresh"].own | ms), ($by["road/refresh"].all | ms), "", ""],
  ((5, 30, 300) as $s | $by["road/refresh"] | ["refresh at intervals", "\($s) s", "\(.own * 3600 / $s | digits(3)) s/h",
      "\(.all * 3600 / $s | digits(3)) s/h", "\(.all / $s * 100 | digits(2)) % of a core", ""])
| "|" + (map(" \(.) |") | add)
