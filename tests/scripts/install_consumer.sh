#!/usr/bin/env bash
# Installs the build into a temporary prefix, then builds the README's embedding example
# against it with find_package(orvKestrel) and runs it. The example is taken from README.md
# itself, so the README cannot drift from what an install gives its users.
# Arguments: source dir, build dir, kestrel binary (of the build tree).
set -euo pipefail
src=$1
build=$2

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
consumer=$tmp/consumer
mkdir -p "$consumer"

cmake --install "$build" --prefix "$prefix" >/dev/null

# The fenced block after the marker "<!-- consumer:NAME -->" becomes the file NAME.
extract() {
  awk -v marker="<!-- consumer:$1 -->" '
    $0 == marker { found = 1; next }
    found && /^```/ { if (inside) exit; inside = 1; next }
    inside { print }
  ' "$src/README.md"
}
for name in CMakeLists.txt main.cpp; do
  extract "$name" >"$consumer/$name"
  if [ ! -s "$consumer/$name" ]; then
    echo "install_consumer: README.md has no example block for $name" >&2
    exit 1
  fi
done

# Only the install prefix may provide orvKestrel: nothing from the source or build tree.
cmake -S "$consumer" -B "$consumer/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >/dev/null
cmake --build "$consumer/build" >/dev/null

# A job folder with one job; the program lists it and runs a pass over it.
jobs=$tmp/jobs
mkdir -p "$jobs" "$tmp/in" "$tmp/out"
printf 'hello\n' >"$tmp/in/a.txt"
cat >"$jobs/copy.kjb" <<JOB
[Job]
Name=copy
From=$tmp/in
To=$tmp/out
Counter=1
Interval=1
DoPreview=0
JOB
out=$(cd "$tmp" && "$consumer/build/runjobs" "$jobs/")
echo "$out"
grep -q "^job copy: from $tmp/in to $tmp/out\$" <<<"$out" || {
  echo "install_consumer: the example did not list the job" >&2
  exit 1
}

# The installed command-line host runs too.
"$prefix/bin/kestrel" --version
"$prefix/bin/kestrel" list "$jobs" >/dev/null
# The installed host finds the installed language files: English for an English locale.
"$prefix/bin/kestrel" check "$jobs" >"$tmp/check.txt" || { cat "$tmp/check.txt" >&2; exit 1; }
rm -rf "$tmp/out"/*
ran=$(cd "$tmp" && env -u LC_ALL -u LC_MESSAGES -u KESTREL_LANG LANG=en_US.UTF-8 \
  "$prefix/bin/kestrel" run "$jobs")
first=${ran%%$'\n'*}
[ "$first" = "copy: Starting job" ] || {
  echo "install_consumer: installed kestrel spoke \"$first\", not the installed English" >&2
  exit 1
}
echo "install_consumer: ok"
