# Reads a trace of the simulated bus and the line's rate (-v baud=N): the share of the time, in %, in which at least
# one of the directions carries a byte. Prints two lines: between the first and the last row of a page (the median of
# the pages), and from the first start of page to the answer to the last write.
$2 == "!" { next }
{
    end = $1
    begin = end - length($3) / 2 * 10 / baud # a line of the trace tells when its last stop bit had passed
    before = busy
    if (end > busy_until) {
        busy += end - (begin > busy_until ? begin : busy_until)
        busy_until = end
    }
}
$2 == ">" && $4 == "start" && !flash_begin { flash_begin = begin; flash_before = before }
$2 == ">" && $4 == "row" && !in_page { in_page = 1; page_begin = begin; page_before = before }
$2 == ">" && $4 == "write" { in_page = 0; add(100 * (page_busy - page_before) / (page_end - page_begin)) }
$2 == "<" && !in_page && asked == "write" { flash_end = end; flash_busy = busy }
$2 == "<" { page_end = end; page_busy = busy }
$2 == ">" { asked = $4 }
END {
    print pages[int((count + 1) / 2)]
    print 100 * (flash_busy - flash_before) / (flash_end - flash_begin)
}

# Keeps the pages in ascending order.
function add(share,    i) {
    for (i = ++count; i > 1 && pages[i - 1] > share; i--)
        pages[i] = pages[i - 1]
    pages[i] = share
}
