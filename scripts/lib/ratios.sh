# shellcheck shell=bash
# Sourced by scripts/bench.sh: the table of ratios.

# print_ratios PEERS CSV...: one row for each line of PEERS (its format is told there) and argument,
# from the medians in the CSV files of Google Benchmark. Fails where a benchmark has none.
print_ratios() {
    local peers=$1
    shift
    printf '| family | work | here | peer | ratio |\n|---|---|---|---|---|\n'
    awk '
        function trim(text) { gsub(/^ +| +$/, "", text); return text }
        function put(text, argument) { gsub(/[*]/, argument, text); return text }
        function shown(ns) {
            if (ns < 1e3) return sprintf("%.3g ns", ns)
            return ns < 1e6 ? sprintf("%.3g µs", ns / 1e3) : sprintf("%.4g ms", ns / 1e6)
        }
        function times(x) { return sprintf(x < 1 ? "%.2f" : x < 10 ? "%.1f" : "%.0f", x) }
        function time_of(name,    time) {
            time = sub(/^cpu:/, "", name) || name !~ /real_time/ ? cpu[name] : wall[name]
            if (time > 0) return time
            print "no median of " name > "/dev/stderr"
            missing = 1
            return 1
        }
        function row(argument,    i, n, pair, peer, list, ratios, here) {
            here = time_of(put(trim($3), argument))
            n = split($4, list, ",")
            peer = ""
            ratios = ""
            for (i = 1; i <= n; i++) {
                split(trim(list[i]), pair, "=")
                pair[2] = time_of(put(pair[2], argument))
                peer = peer (i > 1 ? ", " : "") pair[1] " " shown(pair[2])
                ratios = ratios (i > 1 ? ", " : "") times(pair[2] / here)
            }
            printf "| %s | %s | %s | %s | %s |\n", trim($1), put(trim($2), argument), shown(here),
                peer, ratios
        }
        # The smallest argument that is larger than the last one; numbers compare as such.
        function next_argument(prefix, last,    name, argument, found) {
            for (name in cpu) {
                argument = index(name, prefix) == 1 ? substr(name, length(prefix) + 1) : ""
                if (argument ~ /^[0-9]+$/) argument += 0
                if (argument != "" && (last == "" || argument > last) &&
                    (found == "" || argument < found))
                    found = argument
            }
            return found
        }
        function rows_of_each_argument(    prefix, argument) {
            prefix = trim($3)
            sub(/[*]$/, "", prefix)
            while ((argument = next_argument(prefix, argument)) != "")
                row(argument)
        }
        BEGIN { unit["ns"] = 1; unit["us"] = 1e3; unit["ms"] = 1e6; unit["s"] = 1e9 }
        FILENAME != ARGV[ARGC - 1] {
            if (match($0, /^"[^"]*_median"/)) {
                name = substr($0, 2, RLENGTH - 9)
                split(substr($0, RLENGTH + 2), value, ",")
                wall[name] = value[2] * unit[value[4]]
                cpu[name] = value[3] * unit[value[4]]
            }
            next
        }
        /^#/ || !/[|]/ { next }
        $3 ~ /[*]/ { rows_of_each_argument(); next }
        { row("") }
        END { exit missing }
    ' FS='|' "$@" "$peers"
}
