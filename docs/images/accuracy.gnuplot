# Draws error_against_orbit.png and pulls.png of accuracy.md, in the directory of their data:
#   bpmsim accuracy --table --bpms 60 --noise 1e-4 >known.dat
#   bpmsim accuracy --table --bpms 60 --noise 1e-4 --pedestal-left 3e-3 >left.dat
#   bpmsim accuracy --bpms 400 --noise 1e-4 --exact-table --known 1e-9 --pulls pulls.dat
#   gnuplot accuracy.gnuplot
set terminal pngcairo size 760,480 font 'DejaVu Sans,11'
set output 'error_against_orbit.png'
set logscale y
set format y '10^{%L}'
set xlabel 'distance of the orbit from the axis [mm]'
set ylabel 'error of a gain ratio, rms'
set key top left
set yrange [2e-5:1]
set grid
plot 'known.dat' using (sqrt($1**2+$2**2)):3 with linespoints pt 7 lc rgb '#888888' title 'limit of the noise', \
     '' using (sqrt($1**2+$2**2)):6 with linespoints pt 5 lc rgb '#1f77b4' title 'calibration', \
     'left.dat' using (sqrt($1**2+$2**2)):6 with linespoints pt 4 lc rgb '#1f77b4' dt 2 title 'calibration, pedestals of 0.3 % left in', \
     'known.dat' using (sqrt($1**2+$2**2)):4 with linespoints pt 9 lc rgb '#d62728' title 'four fits', \
     'left.dat' using (sqrt($1**2+$2**2)):4 with linespoints pt 8 lc rgb '#d62728' dt 2 title 'four fits, pedestals of 0.3 % left in'
set output 'pulls.png'
unset logscale y
set format y '%g'
set xlabel 'error over its own standard deviation'
set ylabel 'gain ratios'
set xrange [-5:5]
set yrange [0:*]
set style fill solid 0.4
width = 0.25
bin(x) = width * (floor(x / width) + 0.5)
n = 1200
plot 'pulls.dat' using (bin($1)):(1) smooth frequency with boxes lc rgb '#1f77b4' title 'calibration', \
     n * width * exp(-x**2 / 2) / sqrt(2 * pi) lc rgb '#d62728' title 'if the errors are true'
