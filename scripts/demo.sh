#!/usr/bin/env bash
# The first command for a newcomer: installs what the build needs (with sudo when not root),
# builds kestrel, creates sample files below examples/demo/ and runs the sample jobs of
# examples/jobs on them, then shows what changed.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset release
cmake --build --preset release

KESTREL=build/release/kestrel
DEMO=examples/demo

# Prints a folder's tree with sizes, one entry a line.
show_tree() {
  find "$1" -mindepth 1 -printf '%P\t%y\t%s\n' | LC_ALL=C sort | while IFS=$'\t' read -r path type size; do
    depth=$(($(tr -cd '/' <<<"$path" | wc -c)))
    indent=$(printf '%*s' $((depth * 2)) '')
    if [ "$type" = d ]; then
      echo "  $indent${path##*/}/"
    else
      echo "  $indent${path##*/}  ($size bytes)"
    fi
  done
}

echo
echo "== Sample files in $DEMO/ (made afresh on every run)"
rm -rf "$DEMO"
mkdir -p "$DEMO"/{documents/projects,documents/images,backup,logs,archive/logs,reports/2026,work/cache,laptop/notes,server}

printf 'Dear reader,\nthis letter is copied to the backup.\n' >"$DEMO/documents/letter.txt"
printf 'old draft of the letter\n' >"$DEMO/documents/letter.txt.bak"
printf '# Notes\n- buy milk\n' >"$DEMO/documents/notes.md"
printf 'Plan: ship the demo.\n' >"$DEMO/documents/projects/plan.txt"
head -c 2048 /dev/urandom >"$DEMO/documents/images/logo.bin"

printf 'started\nstopped\n' >"$DEMO/logs/2026-09-01.log"
touch -d '40 days ago' "$DEMO/logs/2026-09-01.log"
printf 'started\n' >"$DEMO/logs/today.log"
printf 'not a log\n' >"$DEMO/logs/readme.txt"

printf 'month;sales\njan;10\nfeb;12\nmar;9\n' >"$DEMO/reports/2026/q1.csv"
printf 'month;sales\napr;11\nmay;14\njun;13\n' >"$DEMO/reports/2026/q2.csv"
printf 'A good half year.\n' >"$DEMO/reports/summary.txt"

printf 'scratch\n' >"$DEMO/work/build.tmp"
printf 'cache\n' >"$DEMO/work/cache/page.tmp"
printf 'keep me\n' >"$DEMO/work/keep.txt"

printf 'written on the laptop\n' >"$DEMO/laptop/notes/todo.txt"
printf 'new version, edited on the laptop\n' >"$DEMO/laptop/shared.txt"
printf 'old version\n' >"$DEMO/server/shared.txt"
touch -d '2 days ago' "$DEMO/server/shared.txt"
printf 'only on the server\n' >"$DEMO/server/server-only.txt"
show_tree "$DEMO"

echo
echo "== The sample jobs (examples/jobs)"
"$KESTREL" list examples/jobs

echo
echo "== $KESTREL run examples/jobs --lang examples/lang/English.lng --verbose"
status=0
"$KESTREL" run examples/jobs --lang examples/lang/English.lng --verbose || status=$?
echo "(exit status $status)"

echo
echo "== The preview job, run by itself: it shows what it would delete and deletes nothing"
echo "== $KESTREL run-one examples/jobs/preview-cleanup.kjb --lang examples/lang/English.lng"
"$KESTREL" run-one examples/jobs/preview-cleanup.kjb --lang examples/lang/English.lng || status=$?

echo
echo "== $DEMO/ afterwards"
show_tree "$DEMO"
if [ -f "$DEMO/archive/zip-reports.zip" ]; then
  echo
  echo "== Inside $DEMO/archive/zip-reports.zip"
  unzip -l "$DEMO/archive/zip-reports.zip"
fi

echo
echo "Next: read README.md, change a job in examples/jobs and run the demo again,"
echo "or run the tests with scripts/test.sh."
exit "$status"
