# Draws the table of scripts/bench watch, and the delays that it sums up.
set terminal svg size 960,360 background 'white' font 'sans-serif,12'
rows(what) = "<grep '^| ".what."' ".folder.'/watch.md'
set output folder.'/watch.svg'
set multiplot layout 1,2
set style fill solid 0.5
set boxwidth 0.35
set grid ytics
set ylabel 'processor time in s per hour, idle'
set logscale y
set datafile separator '|'
plot [-0.5:2.5] [0.1:10000] rows('processor time') using ($0-0.2):5:xtic(3) with boxes title 'without', \
    '' using ($0+0.2):4 with boxes title 'watching'
unset logscale y
set datafile separator
set grid
set key top left
set ylabel '% of changes that are seen'
set xlabel 'within s'
set arrow from 1.5,0 to 1.5,100 nohead dashtype 2
set label 'goal' at 1.52,50
plot [0:2] [0:100] for [what in 'circuit row'] folder.'/delays-'.what using ($1/1000):(100.*($0+1)/changes) \
    with steps linewidth 2 title (what eq 'circuit' ? 'circuit list' : 'row of the database')
