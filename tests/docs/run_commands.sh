# usage: run_commands.sh QVVOICE SOURCE_DIR
# Runs what stands in the fenced blocks of README.md and docs/*.md: every line of a block that calls qvvoice; where lines
# begin with "$ " these, and what follows them is what they must print. Blocks of ```toml behind such a block are edits of
# the file made last. What needs a device or another system's programs (cmake, cc, arecord, ...) is passed over.
set -u
command=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0 ran=0

mkdir -p "$work/bin" "$work/recordings"
# A search of a few evaluations shows as well that the command is right.
cat >"$work/bin/qvvoice" <<WRAPPER
#!/bin/sh
case "\$1 \$2 \$3" in
  'tune '*) exec "$command" "\$@" --budget 1 ;;
  'scene --set all') shift 3; exec "$command" scene --set far-end double-talk --rate 16000 "\$@" ;;
esac
exec "$command" "\$@"
WRAPPER
chmod +x "$work/bin/qvvoice"
export PATH="$work/bin:$PATH"

prepare() { # the recordings, in the current folder
  cp "$work"/recordings/* .
  ln -s "$source/examples" "$source/scenes" "$source/presets" .
  mkdir -p build && ln -s "$work/bin" build/bin
}

# "command<TAB>expected lines joined by \x01" per command; edits as "edit<TAB>section<TAB>lines".
commands_of() {
  awk -v joint=$'\x01' '
    function flush() { if (shown != "") print "run\t" shown "\t" expected; shown = expected = "" }
    /^```/ { if (inside) { flush(); if (kind == "toml" && edits) print "edit\t" text; inside = 0; next }
             inside = 1; kind = substr($0, 4); text = ""; next }
    !inside { next }
    kind == "toml" { text = text $0 joint; next }
    kind != "" { next }
    /^\$ / { flush(); shown = substr($0, 3); edits = 1; dollar[NR] = 1; next }
    shown != "" { expected = expected $0 joint; next }
    /(^|\/| )qvvoice / { print "run\t" $0 "\t" }' "$1"
}

run_file() {
  local kind line expected edited=
  cd "$(mktemp -d -p "$work")" && prepare
  while IFS=$'\t' read -r kind line expected; do
    if [ "$kind" = edit ]; then
      line=$(tr '\001' '\n' <<<"$line")
      section=$(sed -n '1s/^\(\[.*\]\)$/\1/p' <<<"$line")
      last_section=${section:-$last_section}
      grep -v '^\[' <<<"$line" >edit
      at=$(grep -nF "$last_section" "$edited" | head -1 | cut -d: -f1)
      sed -i "${at}r edit" "$edited"
      continue
    fi
    line=${line%% #*}
    bash -c "$line" >output 2>&1 </dev/null
    status=$?
    ran=$((ran + 1))
    case $line in *diagnose* | *'para diff'* | *tune*) [ $status -eq 1 ] && status=0 ;; esac # found something wrong
    [ $status -eq 0 ] || { echo "$1: status $status of: $line"; cat output; failures=$((failures + 1)); }
    if [ -n "$expected" ] && ! diff <(tr '\001' '\n' <<<"$expected" | sed '/^$/d') output; then
      echo "$1: prints something else: $line"
      failures=$((failures + 1))
    fi
    case $line in *'para new'*) edited=${line##*--out } ;; esac
  done < <(commands_of "$1")
}

cd "$work"
"$command" scene --set double-talk --rate 16000 --out made >/dev/null || exit 1
"$command" scene "$source/examples/scenes/device-plays.toml" --rate 16000 --out plays >/dev/null || exit 1
"$command" scene "$source/examples/scenes/device-hears.toml" --rate 16000 --out hears >/dev/null || exit 1
cp made/double-talk-16k/mic.wav recordings/mic.wav
cp made/double-talk-16k/ref.wav recordings/loudspeaker.wav
ffmpeg -v error -i recordings/mic.wav -i recordings/loudspeaker.wav -filter_complex amerge=inputs=2 -ac 2 recordings/both.wav || exit 1
cp "$source/scenes/far-end.toml" recordings/office.toml
for file in "$source/README.md" "$source"/docs/*.md; do
  case $file in */tuning.md) cp plays/mic.wav plays/ref.wav "$work/recordings"; cp hears/mic.wav "$work/recordings/near.wav" ;; esac
  (cd "$work" && run_file "$file"; echo "$ran $failures" >"$work/counts")
  read -r one wrong <"$work/counts"
  total=$((${total:-0} + one)) bad=$((${bad:-0} + wrong))
done
echo "$total commands, $bad wrong"
[ "$bad" -eq 0 ] && [ "$total" -ge 15 ]
