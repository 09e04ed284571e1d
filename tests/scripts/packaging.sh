#!/usr/bin/env bash
# What an install gives operators and packagers: a pkg-config file that builds the README's
# embedding example without CMake, systemd units whose paths are those of the install, and a
# logrotate file that logrotate accepts.
# Arguments: source dir, build dir, kestrel binary (of the build tree).
set -euo pipefail
src=$1
build=$2

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
fail() { echo "packaging: $*" >&2; exit 1; }

# pkg-config: the example of README.md, compiled and linked with its flags alone.
pc=$(find "$prefix" -name orvKestrel.pc -print -quit)
[ -n "$pc" ] || fail "no orvKestrel.pc installed"
export PKG_CONFIG_PATH=${pc%/*}
awk '$0 == "<!-- consumer:main.cpp -->" { f = 1; next } f && /^```/ { if (i) exit; i = 1; next } i' \
  "$src/README.md" >"$tmp/main.cpp"
libdir=$(pkg-config --variable=libdir orvKestrel)
# shellcheck disable=SC2046
g++ -std=c++20 "$tmp/main.cpp" -o "$tmp/runjobs" $(pkg-config --cflags --libs orvKestrel) \
  -Wl,-rpath,"$libdir"
mkdir -p "$tmp/jobs" "$tmp/in" "$tmp/out"
printf 'hello\n' >"$tmp/in/a.txt"
printf '[Job]\nName=copy\nFrom=%s\nTo=%s\nCounter=1\nInterval=1\nDoPreview=0\n' \
  "$tmp/in" "$tmp/out" >"$tmp/jobs/copy.kjb"
(cd "$tmp" && "$tmp/runjobs" "$tmp/jobs/") >/dev/null
cmp -s "$tmp/in/a.txt" "$tmp/out/a.txt" || fail "the pkg-config build did not run the job"

# systemd: every unit verifies, and names the installed kestrel and language file.
units=$prefix/share/orvKestrel/systemd
for unit in kestrel.service kestrel-run.service kestrel-run.timer; do
  [ -f "$units/$unit" ] || fail "$unit not installed"
done
if command -v systemd-analyze >/dev/null; then
  (cd "$units" && systemd-analyze verify ./kestrel.service ./kestrel-run.service ./kestrel-run.timer) \
    || fail "systemd-analyze verify refused the units"
fi
for unit in kestrel.service kestrel-run.service; do
  grep -q "^ExecStart=$prefix/bin/kestrel " "$units/$unit" || fail "$unit does not start $prefix/bin/kestrel"
  lang=$(sed -n 's/^Environment=KESTREL_LANG=//p' "$units/$unit")
  [ -f "$lang" ] || fail "$unit names the language file \"$lang\", which is not installed"
  grep -q '^StateDirectory=kestrel$' "$units/$unit" && grep -q '^LogsDirectory=kestrel$' "$units/$unit" \
    || fail "$unit lets systemd make no state or logs folder"
done

# logrotate: the rotation file parses.
rotate=$prefix/share/orvKestrel/logrotate/kestrel
[ -f "$rotate" ] || fail "logrotate/kestrel not installed"
if command -v logrotate >/dev/null; then
  logrotate -d -s "$tmp/logrotate.state" "$rotate" >/dev/null 2>&1 || fail "logrotate refused $rotate"
fi
echo "packaging: ok"
