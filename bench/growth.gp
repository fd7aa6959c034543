# Draws how flashing grows: -e "csv='...'; svg='...'".
set terminal svg size 900,640 font "DejaVu Sans,12" background "white"
set output svg
set datafile separator ","
set key left top
set grid
set style data linespoints
set multiplot layout 2,2
only(what, n) = strcol(1) eq what ? column(n) : NaN

set xlabel "image, KiB"
set ylabel "flash time at 921600 baud, s"
plot csv using 2:(only("records", 3)) title "record by record", "" using 2:(only("pages", 3)) title "page by page"
set ylabel "parse time, ms"
plot csv using 2:(only("records", 4)) notitle
set ylabel "peak memory, MB"
set yrange [0:*]
plot csv using 2:(only("records", 5)) title "record by record", "" using 2:(only("pages", 5)) title "page by page"
set xlabel "modules with an image of 32 KiB each"
set ylabel "flash time at 921600 baud, s; peak memory, MB"
plot csv using 2:(only("modules", 3)) title "flash time", "" using 2:(only("modules", 5)) title "peak memory"
unset multiplot
