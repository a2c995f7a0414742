#!/bin/bash
# console_script.sh <kestrel-console> <console_server>: uses the console as a script would: without a
# terminal, over pipes, looking at exit codes, standard output and standard error.
set -euo pipefail
readonly CONSOLE=$1 SERVER=$2

work=$(mktemp -d)
readonly work
trap 'rm -rf "$work"' EXIT
export LC_ALL=C.UTF-8
unset KESTREL_SOCKET

fail() {
  echo "FAILED: $1"
  exit 1
}

# expect <what> <exit code> <standard output> <standard error> <argument>...
expect() {
  local what=$1 wanted=$2 out=$3 err=$4 status=0
  shift 4
  "$CONSOLE" "$@" >"$work/out" 2>"$work/err" </dev/null || status=$?
  [[ $status == "$wanted" ]] || fail "$what: exit code $status, not $wanted"
  [[ $(<"$work/out") == "$out" ]] || fail "$what: printed $(<"$work/out")"
  [[ $(<"$work/err") == "$err" ]] || fail "$what: complained $(<"$work/err")"
  echo "ok: $what"
}

run() { "$CONSOLE" --timeout 600 --socket "$work/socket" "$@"; }

mkfifo "$work/input"
"$SERVER" "$work/socket" hostile <"$work/input" >"$work/server.out" 2>&1 &
exec 9>"$work/input"
for ((i = 0; i < 6000; ++i)); do
  [[ -S $work/socket ]] && break
  sleep 0.05
done

socket=(--timeout 600 --socket "$work/socket")
expect "a command" 0 $'line 1\nline 2\n ***total 2 line(s) ***' "" "${socket[@]}" demo lines 2
expect "a command as one word" 0 $'line 1\n ***total 1 line(s) ***' "" "${socket[@]}" "demo lines 1"
expect "the object is named" 0 $'line 1\n ***total 1 line(s) ***' "" \
  "${socket[@]}" --object demo demo lines 1
expect "hostile text" 0 'uri(\x1b[2J\x1b]0;owned\x07%s\xff\xe2\x80\xae)/n(\x091)' "" \
  "${socket[@]}" demo hostile
expect "hostile text as JSON" 0 \
  $'[\n  {"uri": "\\u001b[2J\\u001b]0;owned\\u0007%s\\\\xff\\u202e", "n": "\\u00091"}\n]' "" \
  "${socket[@]}" --json demo hostile
expect "hostile objects" 0 $'demo\nevil?[7m\nshop' "" "${socket[@]}" objects
expect "a bad command" 1 "" 'kestrel-console: unknown command "nothing"' "${socket[@]}" nothing
expect "a bad object" 1 "" 'kestrel-console: unknown object "nobody"' \
  "${socket[@]}" -o nobody demo hostile
expect "a missing parameter" 1 "" 'kestrel-console: missing parameter uniCount' \
  "${socket[@]}" demo lines
expect "a line feed in a command" 2 "" 'kestrel-console: a command is one line' \
  "${socket[@]}" $'demo\nlines'
expect "quotes in a word" 2 "" 'kestrel-console: a word of a command cannot have double quotes' \
  "${socket[@]}" demo 'li"nes'
expect "an empty command" 1 "" 'kestrel-console: unknown command ""' "${socket[@]}" ""
expect "watch without seconds" 2 "" \
  'kestrel-console: watch needs a number of seconds from 0.1 to 86400, and then a command' \
  "${socket[@]}" watch demo changes
expect "an abbreviation" 0 $'line 1\n ***total 1 line(s) ***' "" "${socket[@]}" d li 1
expect "an abbreviation with several meanings" 1 "" \
  'kestrel-console: "d s t x" may be any of: disp server times, disp server tupleChgList, disp server tupleSetTree' \
  "${socket[@]}" d s t x
expect "an abbreviation of the console's own" 0 '  demo hostile' "" "${socket[@]}" hel d h
expect "a table of an unknown uri" 1 "" \
  'kestrel-console: No oberver tupleSetTree for uri(no/such).' \
  "${socket[@]}" disp server tupleSetTree no/such
expect "a table of an unknown uri as JSON" 1 "[]" \
  'kestrel-console: No oberver tupleSetTree for uri(no/such).' \
  "${socket[@]}" --json disp server tupleChgList no/such
expect "a count" 0 "3" "" "${socket[@]}" disp server tupleSetTree shop/stock '|' include key '|' count
expect "columns" 0 $'TupleInfo: uri:shop/stock, cnt:3\nval(10)\nval(20)\nval(30)' "" \
  "${socket[@]}" 'disp server tupleSetTree shop/stock | columns val'
expect "an unknown column" 1 $'key(1)/val(10)\nkey(2)/val(20)\nkey(3)/val(30)' \
  'kestrel-console: no column "nothing"' \
  "${socket[@]}" 'disp server tupleSetTree shop/stock | include key | sort nothing'
expect "a bar without a filter" 2 "" 'kestrel-console: after a bar comes include TEXT, sort COLUMN, '\
'columns A,B or count, as in "| sort uri"' "${socket[@]}" 'demo hostile |'
expect "help on a command" 0 "  disp client request <uniStartIndex>   observe relations, and requests \
that could not be sent
    <uniStartIndex>                     rows before this number are skipped; 0 shows all" "" \
  "${socket[@]}" help disp client request
expect "a question" 0 "  demo lines <uniCount>                 lines with numbers, each a page
    <uniCount>                          how many" "" "${socket[@]}" demo li '?'
for line in "server stats:counters of messages, notifications, refusals and time" \
  "server perUri:counters of each registered URI" "server times:how many callbacks took how long" \
  "server async:requests that the application has not answered" \
  "client stats:counters of calls, failures and mirrors" \
  "client times:how many answers to calls took how long" \
  "client call:calls, observations and unacknowledged requests under way"; do
  expect "help on ${line%:*}" 0 "$(printf '  %-38s%s' "disp ${line%:*}" "${line#*:}")" "" \
    "${socket[@]}" help "disp ${line%:*}"
  run --json disp ${line%:*} >"$work/out" || fail "${line%:*} runs"
done
expect "an abbreviation beside them" 0 "1" "" "${socket[@]}" 'd s u | include uri(shop/stock | count'
expect "help on nothing" 1 "" 'kestrel-console: no command begins with "nothing"' \
  "${socket[@]}" help nothing
expect "no host" 3 "" "kestrel-console: cannot connect to $work/none: No such file or directory" \
  --socket "$work/none" demo hostile
expect "a path that is too long" 3 "" "kestrel-console: cannot connect to /$(printf '%0200d' 0):\
 the path of the socket must have 1 to 107 bytes" --socket "/$(printf '%0200d' 0)" demo hostile

"$CONSOLE" --help >"$work/out" || fail "help succeeds"
grep -q -- "--json" "$work/out" || fail "help names the options"
"$CONSOLE" help | cmp - "$work/out" || fail "help needs no host"
[[ $("$CONSOLE" --version) =~ ^kestrel-console\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "the version is told"
status=0
"$CONSOLE" demo lines 1 >/dev/null 2>"$work/err" || status=$?
[[ $status == 2 ]] && grep -q -- "--socket is required" "$work/err" || fail "a socket is needed"
status=0
"$CONSOLE" --nothing >/dev/null 2>"$work/err" || status=$?
[[ $status == 2 && -s $work/err ]] || fail "an unknown option is wrong usage"
KESTREL_SOCKET=$work/socket "$CONSOLE" demo lines 1 >/dev/null || fail "the variable names the socket"
echo "ok: options"

[[ $(run demo lines 100000 | md5sum) == \
  $({ seq -f 'line %.0f' 100000; echo ' ***total 100000 line(s) ***'; } | md5sum) ]] ||
  fail "100,000 lines arrive"
echo "ok: 100,000 lines"
[[ $(run demo lines 100000 | { sleep 1; tail -n 1; }) == ' ***total 100000 line(s) ***' ]] ||
  fail "100,000 lines arrive over a pipe that waits"
echo "ok: a slow pipe"
[[ $(run demo lines 4000000000 | head -n 1) == 'line 1' ]] || fail "a pipe that closes ends it"
run demo lines 1 >/dev/null || fail "the host goes on after a pipe that closed"
echo "ok: a pipe that closes"
status=0
run demo lines 100000 >/dev/full 2>"$work/err" || status=$?
[[ $status == 5 && $(<"$work/err") == 'kestrel-console: cannot write the output' ]] ||
  fail "a full disk is told, exit code $status"
echo "ok: a full disk"

status=0
printf 'demo lines 1\nnothing\n\nformat json\ndemo lines 0\nquit\nnever\n' |
  run >"$work/out" 2>"$work/err" || status=$?
[[ $status == 1 ]] || fail "the failure of a piped command is kept"
[[ $(<"$work/out") == $'line 1\n ***total 1 line(s) ***\n[]' ]] || fail "piped commands are run"
echo "ok: commands from a pipe"
status=0
printf 'object nosuch\nobject demo\nformat j\nd li 0\nq\n' | run >"$work/out" 2>"$work/err" || status=$?
[[ $status == 1 && $(<"$work/err") == 'kestrel-console: unknown object "nosuch"' ]] ||
  fail "an unknown object is an error"
[[ $(<"$work/out") == '[]' ]] || fail "a session goes on after an unknown object"
echo "ok: an unknown object"

"$CONSOLE" "${socket[@]}" --count 2 watch 0.1 demo changes | sed 's/^--- [0-9:]*/--- time/' >"$work/out"
[[ $(<"$work/out") == "--- time demo changes
  row[0]: uri(one)/count(1)
  row[1]: uri(two)/count(1)
   ***total 2 row(s) ***
--- time demo changes
  row[0]: uri(one)/count(1)
* row[1]: uri(two)/count(2)
+ row[2]: uri(even)/count(0)
*  ***total 3 row(s) ***" ]] || fail "watch marks what changed"
echo "ok: watch"
"$CONSOLE" "${socket[@]}" --table --count 2 watch 0.1 demo changes '|' include row '|' sort count |
  sed 's/^--- [0-9:]*/--- time/' >"$work/out"
[[ $(<"$work/out") == "--- time demo changes
  uri  count
  one  1
  two  3
   ***total 2 row(s) ***
--- time demo changes
  uri   count
+ even  0
  one   1
* two   4
*  ***total 3 row(s) ***" ]] || fail "watch of a table, not $(<"$work/out")"
echo "ok: watch of a table"
"$CONSOLE" "${socket[@]}" --json --count 2 watch 0.1 demo changes | sed 's/[0-9:]\{8\}/time/' >"$work/out"
[[ $(<"$work/out") == '{"time": "time", "command": "demo changes", "rows": '\
'[{"change": "", "row": {"uri": "one", "count": "1"}}, '\
'{"change": "", "row": {"uri": "two", "count": "5"}}]}
{"time": "time", "command": "demo changes", "rows": '\
'[{"change": "", "row": {"uri": "one", "count": "1"}}, '\
'{"change": "changed", "row": {"uri": "two", "count": "6"}}, '\
'{"change": "new", "row": {"uri": "even", "count": "0"}}]}' ]] || fail "watch as JSON, not $(<"$work/out")"
echo "ok: watch as JSON"

expect "a host that goes" 4 "" 'kestrel-console: the host closed the connection' \
  "${socket[@]}" demo end
expect "a host that has ended" 3 "" \
  "kestrel-console: cannot connect to $work/socket: Connection refused" "${socket[@]}" demo hostile
