# The figures of the busy access point (tests/vm/guest/load.sh sources this
# file): a burst of lookups whose softirq time is compared with veyra hooked
# and unloaded, and veyra's DHCP and DNS latencies against the clients' own,
# written to $OUT/figures.md, which make vm-load appends to docs/load.md.
# Measurements, not checks: the run's checks stay in load.sh.
# A burst of lookups from every station whose DNS works: softirq ticks and seconds.
burst() {
	_t0=$(softirq_ticks) _u0=$(uptime_s) _p=
	while read -r n v c r t d names; do
		[ "$d" = OK ] || continue
		ip netns exec "st$n" dig +time=2 +tries=1 @"$S" -f "$RUN/burst.names" > /dev/null 2>&1 & _p="$_p $!"
	done < "$RUN/table"
	wait $_p
	echo "$(($(softirq_ticks) - _t0)) $(awk -v a="$_u0" -v b="$(uptime_s)" 'BEGIN { printf "%.1f", b - a }')"
}
for i in 1 2 3 4 5 6 7 8 9 10 11 12; do printf 'printer.lan\nnas.lan\nwww.lan\nfiles.lan\n'; done > "$RUN/burst.names"

# load_figures: $OUT/latencies and $OUT/figures.md, after the last phase.
load_figures() {
	# Figures: veyra's latency against the client's own, per exchange and lookup.
	while read -r n v c r t d names; do
		_m=$(mac "$n")
		for rd in 1 2; do
			[ -f "$LOADLOG/dhcp-st$n.$rd.log" ] || continue
			awk -v k=$rd -v m="$_m" -v t="dhcp st$n.$rd $c" '$1 == "notify_sta_dhcp" && $3 == "sta=" m && ++i == k { sub(/.*=/, "", $NF); print t, $NF }' "$RUN/notes" |
				{ read -r a b c2 vy; awk -v p="$a $b $c2 $vy" '!t0 && /discover|DHCPDISCOVER|DHCPREQUEST/ { t0 = $1 } !t1 && /obtained|DHCPACK/ { t1 = $1 }
					END { if (t0 && t1) printf "%s %d\n", p, (t1 - t0) * 1000 + 0.5 }' "$LOADLOG/dhcp-st$n.$rd.log"; }
			[ "$r" = dig ] && [ "$d" = OK ] || continue
			awk -v k=$rd -v m="$_m" -v t="dns st$n.$rd dig" '$1 == "notify_sta_dns" && $3 == "sta=" m && ++i == k { sub(/.*=/, "", $NF); print t, $NF }' "$RUN/notes" |
				{ read -r a b c2 vy; awk -v p="$a $b $c2 $vy" '/Query time:/ { print p, $(NF - 1); exit }' "$LOADLOG/dns-st$n.$rd.log"; }
		done
	done < "$RUN/table" > "$OUT/latencies"
	stats() { # stats KIND: median veyra, median client, median and worst |difference|, count
		awk -v k="$1" '$1 == k { d = $4 - $5; if (d < 0) d = -d; print $4, $5, d }' "$OUT/latencies" | awk '
			function med(a, n,  i, j, x) { for (i = 2; i <= n; i++) { x = a[i]; for (j = i - 1; j > 0 && a[j] > x; j--) a[j + 1] = a[j]; a[j + 1] = x } return n ? (n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2) : 0 }
			{ n++; v[n] = $1; c[n] = $2; d[n] = $3; if ($3 > w) w = $3 }
			END { printf "%d compared: veyra median %s ms, client median %s ms; difference median %s ms, worst %s ms\n", n, med(v, n), med(c, n), med(d, n), w + 0 }'
	}
	t_first=$(ktime 'wlan[0-9]+: associated' | head -n 1)
	t_lastassoc=$(ktime 'wlan[0-9]+: associated' | sed -n "${N}p")
	cat > "$OUT/figures.md" <<-FIG
	- Stations onboarded: $(grep '^notify_sta_dhcp .* status=1 ' "$RUN/notes" | awk '{ print $3 }' | sort -u | wc -l) of $N (2 VAPs, $rejoins rejoined, one moved VAP); notifications expected $((2 * (N + rejoins))), received $(wc -l < "$RUN/notes").
	- The last of the $N associations came $(awk -v a="$t_first" -v b="$t_lastassoc" 'BEGIN { printf "%.1f", b - a }') s after the first; first association to last outcome $(awk -v a="$t_first" -v b="$t_last" 'BEGIN { printf "%.1f", b - a }') s.
	- DHCP latency, veyra against the client's log ($(awk '$1 == "dhcp" { print $3 }' "$OUT/latencies" | sort | uniq -c | awk '{ printf "%s%s %s", s, $1, $2; s = ", " }')): $(stats dhcp).
	- DNS latency, veyra against dig's query time: $(stats dns).
	- Differences over 20 ms (kind, station.round, client, veyra ms, client ms): $(awk '{ d = $4 - $5 } d > 20 || d < -20 { printf "%s%s %s %s %s/%s", s, $1, $2, $3, $4, $5; s = "; " } END { if (!s) printf "none" }' "$OUT/latencies").
	- Softirq time, the same burst ($(grep -c ' OK ' "$RUN/table") stations x $(wc -l < "$RUN/burst.names") lookups): veyra hooked $(echo "$hooked" | awk '{ print $1 * 10 " ms in " $2 " s" }'), veyra unloaded $(echo "$unloaded" | awk '{ print $1 * 10 " ms in " $2 " s" }').
	- Hooks after the last leave: $( [ "$second_run" = yes ] && echo "a second run hooked with no listener, off after the next raise" || echo "off at once").
	FIG
	cat "$OUT/figures.md"
}
