# The table of scripts/bench-watch, in Markdown. Reads a line per agent: whether it is watching or reads
# all ("full"), its interval, and what idle_bench prints; then a file of sorted delays per kind of
# change. Exit status 1 where a goal is missed.
function met(limit, good) {
    missed += !good
    return limit ": " (good ? "met" : "missed")
}
function row(measured, which, watching, without, result, goal) {
    printf "| %s | %s | %s | %s | %s | %s |\n", measured, which, watching, without, result, goal
}
FILENAME ~ /delays/ {
    if (FNR == 1) kinds[++kind] = FILENAME
    delay[kind, FNR] = $1
    number[kind] = FNR
    next
}
{
    if (!($2 in seen)) order[++cases] = $2
    seen[$2]
    seconds[$1, $2] += $3
    spent[$1, $2] += $4
    runs[$1, $2] += $5 + $6
    count[$1, $2] += $6 # every refresh reads the line once
}
END {
    row("measured", "case", "watching", "without", "result", "goal")
    row("---", "---", "---", "---", "---", "---")
    for (i = 1; i <= cases; ++i) {
        s = order[i]
        full = runs["full", s] / count["full", s]
        watching = runs["watching", s] / count["watching", s]
        all = watching + full * s / 3600
        row("client runs per interval", "every " s " s", sprintf("%.2f", all), sprintf("%.2f", full),
            sprintf("%.2f without the hourly refresh, over %d intervals", watching, count["watching", s]),
            s == 30 ? met("at most 2", all <= 2) : "")
    }
    for (i = 1; i <= cases; ++i) {
        s = order[i]
        full = spent["full", s] / seconds["full", s] * 3.6
        watching = spent["watching", s] / seconds["watching", s] * 3.6
        all = watching + spent["full", s] / count["full", s] / 1000
        row("processor time", "every " s " s", sprintf("%.3g s/h", all), sprintf("%.3g s/h", full),
            sprintf("%.3g times less, %.3g without the hourly refresh", full / all, full / watching),
            s == 30 ? met("at least 20 times", full >= 20 * all) : "")
    }
    row("an interval", "of 30 s", sprintf("%.3g ms", spent["watching", 30] / count["watching", 30]),
        sprintf("%.3g ms", spent["full", 30] / count["full", 30]), "", "")
    for (k = 1; k <= kind; ++k) {
        n = number[k]
        what = kinds[k]
        sub(".*delays-", "", what)
        longest = delay[k, int(n * 0.99 + 0.999)] / 1000
        row("change to GET", what, sprintf("%.2f s", (delay[k, int((n + 1) / 2)] + delay[k, int(n / 2) + 1]) / 2000), "",
            sprintf("median of %d; 99 %% within %.2f s", n, longest), met("at most 1.5 s", longest <= 1.5))
    }
    exit missed > 0
}
