#!/usr/bin/env bash
# The installed program as a user gets it: builds the program's Debian package from this build
# tree, unpacks it into an empty folder (so the install is also moved away from its /usr prefix),
# installs the library beside it with `cmake --install --component library` (its package holds
# the same files; this build's sanitized archive is too big to pack on every test run) and
# checks, with nothing but those files:
#   - the package's name and its Depends: (from dpkg-shlibdeps),
#   - that the program finds its resources beside itself and shows a forecast,
#   - that `man ombrine-forecast` opens and documents every option --help lists,
#   - that bash completes `ombrine fo` to forecast (and more, through the command tree),
#   - the systemd unit templates,
#   - that examples/forecast_example.cpp builds with `pkg-config --cflags --libs ombrine`
#     against the unpacked tree and fetches a forecast from the simulator.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR CXX_COMPILER
set -euo pipefail
build=$1 source=$2 cxx=$3
work=$(mktemp -d)
sim_pid=""
cleanup() {
  if [[ -n $sim_pid ]]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "install test: $*" >&2; exit 1; }
step() { echo "install test: $1 after ${SECONDS}s"; }

# --- the package
cpack --config "$build/CPackConfig.cmake" -B "$work/deb" -D CPACK_COMPONENTS_ALL=program \
  -D CPACK_STRIP_FILES=ON -D CPACK_DEBIAN_COMPRESSION_TYPE=zstd \
  >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; fail "cpack failed"; }
debs=("$work"/deb/*.deb)
[[ ${#debs[@]} == 1 ]] || fail "expected one package, got: ${debs[*]}"
deb=${debs[0]}
[[ $(basename "$deb") =~ ^ombrine_[0-9]+\.[0-9]+\.[0-9]+_[a-z0-9]+\.deb$ ]] || fail "package name $(basename "$deb")"
depends=$(dpkg-deb -f "$deb" Depends)
for package in libc6 libstdc++6 libcurl4 libssl3 libicu72 libsqlite3-0 libsystemd0 libcairo2 libfmt9; do
  [[ $depends == *"$package"* ]] || fail "Depends: lacks $package: $depends"
done
step "package $(basename "$deb") ($(du -k "$deb" | cut -f1) KiB) built"

root=$work/root
dpkg -x "$deb" "$root"
cmake --install "$build" --component library --prefix "$root/usr" >/dev/null
step "unpacked ($(du -sk "$root" | cut -f1) KiB)"

# Only the unpacked files and a fresh home: no source tree, no build tree, no user settings.
home=$work/home
mkdir -p "$home"
run() { env -i HOME="$home" PATH=/usr/bin:/bin LANG=C.UTF-8 ASAN_OPTIONS="${ASAN_OPTIONS:-}" "$@"; }
program=$root/usr/bin/ombrine

version=$(run "$program" --version)
[[ $version == *"resources: $root/usr/share/ombrine (beside the program)"* ]] || fail "--version: $version"
forecast=$(run "$program" --services sim forecast Munich) || fail "forecast exited $?"
[[ $forecast == *Munich* ]] || fail "forecast: $forecast"
[ -f "$root/usr/share/ombrine/locale/ja/LC_MESSAGES/ombrine.mo" ] || fail "translations not installed"
translated=$(run env LANG=ja_JP.UTF-8 "$program" --services sim forecast Munich) || fail "ja forecast exited $?"
[[ $translated == *現在* ]] || fail "ja forecast: $translated"
step "forecast shown (and in Japanese)"

# --- man pages: every option of --help is in the page
if command -v man >/dev/null; then
  page=$(run env MANPATH="$root/usr/share/man" MANWIDTH=100 man -P cat ombrine-forecast 2>/dev/null) || fail "man ombrine-forecast"
else  # no man-db on this machine: the page's source, its escaped hyphens read back
  page=$(sed 's/\\-/-/g' "$root/usr/share/man/man1/ombrine-forecast.1")
fi
help=$(run "$program" forecast --help)
for option in $(grep -oE -- '--[a-z][a-z-]+' <<<"$help" | sort -u); do
  [[ $page == *"$option"* ]] || fail "man ombrine-forecast lacks $option"
done
[[ -f $root/usr/share/man/man1/ombrine-trips-forecast.1 ]] || fail "no page for trips forecast"

# --- completions
completions=$root/usr/share/bash-completion/completions/ombrine
complete_line() {  # the words bash offers for the last word of "$@"
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _ombrine; echo "${COMPREPLY[*]}"' \
    _ "$completions" "$@"
}
while IFS='|' read -r line expected; do
  read -r -a words <<<"$line"
  [[ $line == *" " ]] && words+=("")
  got=$(complete_line "${words[@]}")
  [[ $got == "$expected" ]] || fail "completing \"$line\": got \"$got\", expected \"$expected\""
done <<'EOF'
ombrine fo|forecast
ombrine trips fo|forecast
ombrine --services |real sim
ombrine --services sim fo|forecast
ombrine forecast --js|--json
EOF
[[ -f $root/usr/share/zsh/vendor-completions/_ombrine ]] || fail "no zsh completion"
[[ -f $root/usr/share/fish/vendor_completions.d/ombrine.fish ]] || fail "no fish completion"

# --- systemd user unit templates run the installed program
grep -qxF 'ExecStart="/usr/bin/ombrine" "daemon" "--once"' "$root/usr/lib/systemd/user/ombrine-refresh.service" \
  || fail "unit: $(cat "$root/usr/lib/systemd/user/ombrine-refresh.service")"
[[ -f $root/usr/lib/systemd/user/ombrine-refresh.timer ]] || fail "no timer unit"
[[ -f $root/usr/share/doc/ombrine/NOTICE.places ]] || fail "no notices"
step "man pages, completions and units checked"

# --- the example, built against the unpacked tree only
pc=$(find "$root" -name ombrine.pc)
[[ -n $pc ]] || fail "no ombrine.pc"
flags=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs ombrine)
[[ $flags != *"$source"* && $flags != *"$build"* ]] || fail "pkg-config names the source or build tree: $flags"
# shellcheck disable=SC2086
"$cxx" "$source/examples/forecast_example.cpp" $flags -o "$work/forecast_example" || fail "example does not build"
step "example built"

"$build/bin/ombrine-sim" --quiet >"$work/sim.url" &
sim_pid=$!
for _ in $(seq 100); do [[ -s $work/sim.url ]] && break; sleep 0.05; done
url=$(head -n1 "$work/sim.url")
[[ $url == http://127.0.0.1:* ]] || fail "simulator did not start"
example=$(run env OMBRINE_SERVICES="$url" OMBRINE_RESOURCE_DIR="$root/usr/share/ombrine" "$work/forecast_example" Munich) \
  || fail "example exited $?"
[[ $example == Munich* ]] || fail "example: $example"
step "example fetched a forecast"
