#!/bin/sh
# Runs the sample reader against the bundled podcast served on 127.0.0.1.
#
#   run_with_server.sh READER ROOT [COMMAND ARG...]
#
# Starts the tests' local web server over this folder (python3), then runs
# READER with KORDLL_ROOT=ROOT and the commands given, in which the word
# FEED stands for the address of the served feed. The server ends when the
# reader has ended. The exit status is the reader's.
set -u
here=$(cd "$(dirname "$0")" && pwd)
reader=$1
root=$2
shift 2
mkdir -p "$root"
fifo="$root/server.in"
rm -f "$fifo" "$root/server.out"
mkfifo "$fifo"
python3 "$here/../../../tests/transfer/local_http_server.py" --root "$here" <"$fifo" >"$root/server.out" &
# The server runs while this end of its input stays open.
exec 3>"$fifo"
port=""
for _ in $(seq 1 300); do
  port=$(sed -n 's/^PORT //p' "$root/server.out")
  [ -n "$port" ] && break
  sleep 0.1
done
if [ -z "$port" ]; then
  echo "the local web server did not start (python3 is needed)" >&2
  exit 1
fi
feed="http://127.0.0.1:$port/podcast.xml"
echo "Serving $here on http://127.0.0.1:$port/"
args=""
for arg in "$@"; do
  [ "$arg" = FEED ] && arg=$feed
  args="$args '$arg'"
done
eval "KORDLL_ROOT='$root' '$reader' $args"
status=$?
exec 3>&-
wait
rm -f "$fifo"
exit $status
