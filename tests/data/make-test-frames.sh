#!/bin/sh
# Makes the small real-content test frames in this folder (see README.md) from
# Debian packages only, then checks them against SHA256SUMS (or, with
# --write-sums, rewrites SHA256SUMS). The tests only read the committed files;
# this script is for regenerating them. Installs with apt-get whatever is
# missing (as root, or through sudo).
#
#   tests/data/make-test-frames.sh [--write-sums]
set -eu
cd "$(dirname "$0")"
write_sums=${1:-}

packages="ffmpeg python3-pil python3-numpy python3-skimage fonts-dejavu-core lomiri-wallpapers-16.04"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$' ||
    missing="$missing $p"
done
if [ -n "$missing" ]; then
  as_root=""
  [ "$(id -u)" -eq 0 ] || as_root=sudo
  echo "make-test-frames: installing$missing"
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  # shellcheck disable=SC2086
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null
fi

T=$(mktemp -d); trap 'rm -rf "$T"' EXIT
PY="/usr/bin/python3 frames.py"
FFMPEG=/usr/bin/ffmpeg
BG=/usr/share/backgrounds
# RGB -> NV12: BT.709 matrix, limited (TV) range, Lanczos chroma downsampling by swscale.
YUV="scale=flags=lanczos+accurate_rnd+full_chroma_int:out_color_matrix=bt709:out_range=tv"

raw() {  # raw MASTER.png NAME: NAME.rgba (byte copy of the master), NAME.nv12, NAME.rgb565
  $FFMPEG -v error -y -i "$1" -f rawvideo -pix_fmt rgba "$2.rgba"
  $FFMPEG -v error -y -i "$1" -vf "$YUV" -f rawvideo -pix_fmt nv12 "$2.nv12"
  $PY rgb565 "$1" "$2.rgb565"
}

# Photos: the camera photo scaled (Lanczos) as for the 1920x1080 frames, then a small crop.
$PY photo $BG/seeding_by_*.jpg 0.5 1040 450 256 144 "$T/meadow.png"
$PY photo $BG/picosdeeuropa_by_*.jpg 0.6 780 320 256 144 "$T/mountains.png"
$PY photo $BG/picosdeeuropa_by_*.jpg 0.6 949 800 97 61 "$T/mountains-odd.png"
# Screen-like frame (premultiplied RGBA): the message list (avatars, text, dividers), the
# "now playing" card's video cut-out with its alpha scrim and progress bar, and a piece of
# the translucent bottom navigation bar.
$PY screen "$T/screen.png"
$PY crop "$T/screen.png" 128 556 256 144 "$T/messages.png"
$PY crop "$T/screen.png" 1432 316 256 144 "$T/player.png"
$PY crop "$T/screen.png" 563 1005 133 75 "$T/navbar.png"

raw "$T/meadow.png" photo-meadow-256x144
raw "$T/mountains.png" photo-mountains-256x144
raw "$T/mountains-odd.png" photo-mountains-97x61
raw "$T/messages.png" screen-messages-256x144
raw "$T/player.png" screen-player-256x144
raw "$T/navbar.png" screen-navbar-133x75

# 4-frame slow pan (4 px right, 2 px down per frame) across the hillside photo scaled as for
# the 1920x1080 pan; frame n is the 192x108 window at (1600 + 4n, 620 + 2n) of the scaled photo.
$PY photo $BG/aitzgorri_by_*.jpg 0.75 1600 620 204 114 "$T/hillside.png"
$FFMPEG -v error -y -loop 1 -i "$T/hillside.png" -vf "crop=192:108:4*n:2*n,$YUV" \
  -frames:v 4 -f rawvideo -pix_fmt nv12 pan-hillside-192x108-4f.nv12

# Every file has exactly the size its name implies (NV12 chroma: (w+1)/2 pairs, (h+1)/2 rows).
for f in *.nv12 *.rgba *.rgb565; do
  # shellcheck disable=SC2046
  set -- $(echo "$f" | sed -E 's/.*-([0-9]+)x([0-9]+)(-([0-9]+)f)?\.[a-z0-9]+$/\1 \2 \4/')
  w=$1 h=$2 frames=${3:-1}
  case $f in
    *.nv12) b=$((w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2)));;
    *.rgba) b=$((4 * w * h));;
    *.rgb565) b=$((2 * w * h));;
  esac
  [ "$(stat -c %s "$f")" -eq $((b * frames)) ] || { echo "bad size: $f" >&2; exit 1; }
done

if [ "$write_sums" = "--write-sums" ]; then
  sha256sum *.nv12 *.rgba *.rgb565 > SHA256SUMS
  cat SHA256SUMS
else
  # A mismatch means other package versions (README.md lists the ones used).
  sha256sum -c SHA256SUMS
fi
