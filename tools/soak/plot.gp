# Draws a soak run over time: plot.svg from samples.csv in the working folder.
# Grey: the mail server was away.
set datafile separator ","
set terminal svg size 900,1150 font "sans-serif,11" background "white"
set output "plot.svg"
set key at graph 1.02, graph 1 left top Left reverse samplen 2
set border 3
set tics nomirror
set grid ytics lc "#dddddd"
unset y2tics
set lmargin 11
set rmargin 24
set xrange [0:*] noextend
set style fill solid 1 noborder
set boxwidth 1 / 60.0
x = "column('seconds') / 60"
data = "samples.csv"

# Boxes as high as the plot, one for each second without a server.
set yrange [0:*]
set y2range [0:1]
away = "column('mail_server_up') == 0 ? 1 : NaN"

set multiplot layout 6,1

set title "Memory, MiB"
set ytics auto
plot data using (@x):(@away) axes x1y2 with boxes lc "#e8e8e8" notitle, \
     "" using (@x):(column("resident") / 1048576) with lines lw 1.5 lc "#1f77b4" title "resident", \
     "" using (@x):(column("besides_frames") / 1048576) with lines lw 1.5 lc "#d62728" title "besides frames"

set title "Resident memory, MiB, magnified"
set yrange [*:*]
set ytics auto
plot data using (@x):(@away) axes x1y2 with boxes lc "#e8e8e8" notitle, \
     "" using (@x):(column("resident") / 1048576) with lines lw 1.5 lc "#1f77b4" title "resident"

set title "Frames held"
set yrange [0:*]
set ytics auto
plot data using (@x):(@away) axes x1y2 with boxes lc "#e8e8e8" notitle, \
     "" using (@x):(column("frames_held")) with lines lw 1.5 lc "#1f77b4" title "frames"

set title "Descriptors, threads, child processes"
set ytics auto
plot data using (@x):(@away) axes x1y2 with boxes lc "#e8e8e8" notitle, \
     "" using (@x):(column("descriptors")) with lines lc "#1f77b4" title "descriptors", \
     "" using (@x):(column("threads")) with lines lw 1.5 lc "#d62728" title "threads", \
     "" using (@x):(column("children")) with lines lc "#2ca02c" title "children"

set title "Messages on their way"
set ytics auto
plot data using (@x):(@away) axes x1y2 with boxes lc "#e8e8e8" notitle, \
     "" using (@x):(column("under_way")) with lines lc "#1f77b4" title "not sent yet", \
     "" using (@x):(column("waiting")) with lines lw 1.5 lc "#d62728" title "in the retry queue", \
     "" using (@x):(column("files")) with lines lc "#2ca02c" title "files in data/"

# Over ten seconds, so that single mails do not show.
set title "Mails and failed attempts a second"
set xlabel "minutes"
set ytics auto
before = NaN
rate(now) = (last = before, before = now, (now - last) / 10)
plot data using (@x):(@away) axes x1y2 with boxes lc "#e8e8e8" notitle, \
     "" every 10 using (@x):(rate(column("mailed"))) with lines lw 1.5 lc "#1f77b4" title "mails", \
     before = NaN, \
     "" every 10 using (@x):(rate(column("attempts") - column("mailed"))) with lines lc "#d62728" title "failed attempts"
unset multiplot
