# Draws the parts of the table of scripts/bench library; a column's text counts as the number that it begins with.
set terminal svg size 640,360 background 'white' font 'sans-serif,12'
set datafile separator '|'
rows(what) = "<grep '^| ".what."' ".folder.'/library.md'
set grid ytics
set style fill solid 0.5
set boxwidth 0.5
set output folder.'/library.svg'
set ylabel 'µs per client run, without shell and client'
plot [-0.5:2.5] [0:4] rows('library') using 0:6:xtic(3) with boxes title 'library', \
    3 title 'goal: at most 3'
set output folder.'/refresh.svg'
set ylabel 'processor time in s per hour'
set logscale y
plot [-0.5:2.5] [0.01:1000] rows('refresh at') using 0:5:xtic('every '.stringcolumn(3)) with boxes \
    title 'refresh', '' using 0:4 with boxes title 'of that in the agent'
unset logscale y
set logscale x 2
set xlabel 'rows'
set output folder.'/report.svg'
set ylabel "report: library's time / bare loop's time"
plot [1:512] [0.9:1.1] rows('report beside the') using 3:6 with linespoints title 'measured', \
    1.03 title 'goal: at most 1.03'
set output folder.'/scripts.svg'
set ylabel "report: library's time / script's time"
plot [1:512] [0:2] for [script in 'shell Perl'] rows('report beside a '.script) \
    using 3:6 with linespoints title script
