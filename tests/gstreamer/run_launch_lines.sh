# usage: run_launch_lines.sh QVVOICE PAGE
# Runs every gst-launch-1.0, gst-inspect-1.0 and qvvoice line of the page, as written, in a folder with the recordings that
# it names; instead of a sound card, live test sources and a sink that keeps time.
set -u
command=$1 page=$2 ran=0 wrong=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
mkdir bin && ln -s "$command" bin/qvvoice && export PATH="$work/bin:$PATH"
qvvoice scene --set double-talk --rate 16000 --out made >/dev/null || exit 1
for name in mic ref; do
  cp made/double-talk-16k/$name.wav . && tail -c +45 $name.wav >$name.raw
done
head -c 64000 ref.raw >far.raw
gst-launch-1.0 -q filesrc location=far.raw ! rawaudioparse pcm-format=s16le sample-rate=16000 num-channels=1 ! opusenc ! \
  oggmux ! filesink location=far.ogg || exit 1
qvvoice para new --base balanced-16k-20ms --out speakerphone.toml || exit 1

lines() { # continued lines joined
  awk '/^```/ { inside = !inside; next }
    !inside { next }
    sub(/\\$/, "") { line = line $0; next }
    { line = line $0; if (line ~ /^(gst-|qvvoice )/) print line; line = "" }' "$page"
}

while IFS= read -r line; do
  ran=$((ran + 1))
  line=${line//alsasrc/audiotestsrc is-live=true num-buffers=100}
  line=${line//alsasink/fakesink sync=true}
  timeout 60 bash -c "$line" >output 2>&1 </dev/null || { echo "status $? of: $line"; cat output; wrong=$((wrong + 1)); }
  grep -E '^(WARNING|ERROR)' output && { echo "of: $line"; wrong=$((wrong + 1)); }
done < <(lines)
cmp sent.raw tool.raw && [ -s tool.raw ] || { echo "sent.raw is not what the tool makes"; wrong=$((wrong + 1)); }
[ -s sent.ogg ] || { echo "sent.ogg is empty"; wrong=$((wrong + 1)); }
echo "$ran lines, $wrong wrong"
[ "$wrong" -eq 0 ] && [ "$ran" -ge 5 ]
