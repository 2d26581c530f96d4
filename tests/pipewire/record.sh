# usage: record.sh QVVOICE PAGE SYSTEM
# The page's PipeWire commands as they stand, but for the names of the two ports: null sinks are loudspeaker and
# microphone, a convolver between them is the room, and noise is in it. The recording that they make must be one of which diagnose finds
# nothing wrong. Real time; as play_scene.sh, on a busy machine it tries three times.
set -u
qvvoice=$1 page=$2 system=$3 spa=/nowhere
source "$(dirname "$0")/daemon.sh"

perl "$here/recording.pl" room "$work/room.wav" || exit 1
cat >"$work/daemon/pipewire.conf.d/room.conf" <<CONF
context.modules = [
    {   name = libpipewire-module-filter-chain
        args = {
            filter.graph  = { nodes = [ { type = builtin name = room label = convolver config = { filename = "$work/room.wav" } } ] }
            audio.rate    = 48000
            capture.props = { node.name = room.in  node.autoconnect = false audio.channels = 1 audio.position = [ MONO ] }
            playback.props = { node.name = room.out node.autoconnect = false audio.channels = 1 audio.position = [ MONO ] }
        }
    }
]
CONF
"$qvvoice" scene --set far-end --rate 16000 --out "$work/made" >/dev/null || exit 1
ffmpeg -v error -f lavfi -i anoisesrc=amplitude=0.002:duration=60:color=pink "$work/noise.wav" || exit 1
ffmpeg -v error -t 20 -i "$work/made/far-end-16k/ref.wav" "$work/farend.wav" || exit 1

blocks() { # of the page, those of a kind up to the first heading
  awk -v kind="$1" '/^## / { exit } /^```/ { open = !open; shown = open && $0 == "```" kind; next } shown' "$page"
}
blocks sh | sed 's/^microphone=.*/microphone=microphone:capture_FL/; s/^loudspeaker=.*/loudspeaker=loudspeaker:monitor_FL/' >"$work/commands"
for needed in pw-record pw-link pw-play; do
  grep -q "^$needed " "$work/commands" || fail "the page shows no $needed"
done
diagnose=$(blocks '')
[ "$diagnose" = 'qvvoice diagnose --stereo both.wav' ] || fail "the page goes on with something else: $diagnose"

for try in 1 2 3; do
  (
    into_the_system
    start_daemon
    trap stop EXIT
    wait_for "room" has_port -o room.out:output_MONO
    pw-link loudspeaker:monitor_FL room.in:input_MONO
    pw-play --target 0 -P '{ node.name = noise }' "$work/noise.wav" & jobs_of_mine+=($!)
    wait_for "noise" has_port -o noise:output_MONO
    pw-link noise:output_MONO microphone:input_FL
    pw-link room.out:output_MONO microphone:input_FL
    cd "$work" && rm -f both.wav
    timeout 60 bash commands
  ) >"$work/commands.log" 2>&1
  (cd "$work" && "$qvvoice" ${diagnose#qvvoice }) >"$work/verdict.log" 2>&1 &&
    grep -q '^ok *Echo in the microphone' "$work/verdict.log" && { cat "$work/verdict.log"; exit 0; }
  echo "try $try: $(head -1 "$work/verdict.log")"
done
fail "what the page's commands record is no good"
