# Draws how updating grows: gnuplot -e "csv='...'; svg='...'".
set terminal svg size 900,640 font "DejaVu Sans,12" background "white"
set output svg
set datafile separator ","
set key left top
set grid
set style data linespoints
set yrange [0:*]
only(what, n) = strcol(1) eq what ? column(n) : NaN

set multiplot layout 2,2
set xrange [0:1100]
set xlabel "image, KiB"
set ylabel "flash time at 921600 baud, s"
plot csv using 2:(only("records", 3)) title "record by record", "" using 2:(only("pages", 3)) title "page by page"
set ylabel "parse time, ms"
plot csv using 2:(only("records", 4)) notitle
set xrange [0:12]
set xlabel "modules with an image of 32 KiB each"
set ylabel "s; ms"
plot csv using 2:(only("modules", 3)) title "flash time at 921600 baud, s", \
    "" using 2:(only("modules", 4)) title "parse time, ms"
set xrange [0:1100]
set xlabel "image, KiB"
set x2label "modules"
set x2range [0:12]
set x2tics
set xtics nomirror
set ylabel "peak memory, MB"
set yrange [0:45]
plot csv using 2:(only("records", 5)) title "record by record", "" using 2:(only("pages", 5)) title "page by page", \
    "" using 2:(only("modules", 5)) axes x2y1 title "modules, scale above"
unset multiplot
