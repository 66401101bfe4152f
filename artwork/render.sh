#!/bin/sh
# Renders the artwork: every picture of this folder in three scales, and the application's icon in its sizes, as PNG files
# in resources/artwork. Needs rsvg-convert (package librsvg2-bin). The results are part of the tree, so this runs only when
# a picture has changed.
set -eu
cd "$(dirname "$(readlink -f "$0")")"
target=../resources/artwork
mkdir -p "$target"
for picture in *.svg; do
  name=${picture%.svg}
  case $name in application-icon*) continue ;; esac
  rsvg-convert "$picture" -o "$target/$name.png"
  for scale in 2 3; do
    rsvg-convert --zoom "$scale" "$picture" -o "$target/$name@${scale}x.png"
  done
done
rsvg-convert application-icon-16.svg -o "$target/application-icon-16.png"
for size in 32 48 64 128 256; do
  rsvg-convert --width "$size" --height "$size" application-icon.svg -o "$target/application-icon-$size.png"
done
