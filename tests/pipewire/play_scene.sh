# usage: play_scene.sh QVVOICE SPA_FOLDER DROP_IN SYSTEM [SCENE]
# A daemon and a session manager with the drop-in as it ships; a scene is played through them and the echo measured behind.
#   SYSTEM  folder that scripts/pipewire-system has filled; without it the test is skipped (77)
#   SCENE   folder of scene.toml as made; made here where it is not given
# Real time. One player feeds microphone and far end, one recorder takes all that is compared, and nodes of one graph keep
# step: on a busy machine everything is late together (root's processes go first, too). What is lost all the same is
# granted a second and a third try, from the start.
set -u
qvvoice=$1 spa=$2 drop_in=$3 system=$4
source "$(dirname "$0")/daemon.sh"

cp "$drop_in" "$work/daemon/pipewire.conf.d"
scene=${5:-$work/scene}
[ $# -ge 5 ] || "$qvvoice" scene "$here/scene.toml" --rate 16000 --out "$scene" >/dev/null || exit 1
perl "$here/recording.pl" join "$scene"/{mic,ref}.wav "$work/both.wav" || exit 1

into_the_system

start() {
  start_daemon
  wait_for "link from the microphone" linked microphone:capture_FL qvvoice.microphone:input_FL
  wait_for "link to the loudspeaker" linked loudspeaker:playback_FL qvvoice.loudspeaker:output_FL
  grep -o 'qvvoice [0-9].*' "$work/daemon.log" || fail "the plugin has not said that it runs"
  pw-dump | grep -q 'library.name = aec/libspa-aec-qvvoice' || fail "pw-dump does not show the plugin"
}

play() { # writes recording.wav
  nice -n -15 pw-record --target 0 --rate 16000 --channels 3 --channel-map FL,FR,FC -P '{ node.name = recorder }' "$work/recording.wav" & local recorder=$!
  nice -n -15 pw-play --target 0 -P '{ node.name = player }' "$work/both.wav" & local player=$!
  jobs_of_mine+=("$recorder" "$player")
  wait_for recorder has_port -i recorder:input_FC
  wait_for player has_port -o player:output_FR
  pw-link qvvoice.source:capture_FL recorder:input_FL
  pw-link microphone:capture_FL recorder:input_FR
  pw-link loudspeaker:monitor_FL recorder:input_FC
  for side in FL FR; do
    pw-link player:output_FL "microphone:input_$side"
    pw-link player:output_FR "qvvoice.sink:playback_$side"
  done
  wait "$player"
  kill -INT "$recorder"
  wait "$recorder"
}

for try in 1 2 3; do
  start
  play
  stop
  levels=$(perl "$here/recording.pl" levels "$work/recording.wav") || { echo "try $try: nothing to measure"; continue; }
  echo "try $try, output over microphone in dB: $levels"
  # The far end's echo at least 20 dB down, the near end at most 8 dB.
  awk -v n=0 '{ n = $2 <= -20 && $4 >= -8 && $4 <= 8 } END { exit !n }' <<<"$levels" && exit 0
done
fail "the echo is not gone, or the near end is"
