#!/usr/bin/env bash
# kestrane's streamer beside a GStreamer and an FFmpeg pipeline on one X desktop (bench/compare/).
# Options pass through: --seconds N, --warmup S, --busy, --only NAME.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/install.sh

# The peers, the desktop's content (a terminal, top, a clock) and its fonts.
compare_packages=(gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly
  gstreamer1.0-x ffmpeg xterm x11-apps xfonts-base procps)
apt_install "${compare_packages[@]}"

node bench/compare/compare.js "$@"
