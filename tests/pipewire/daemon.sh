# Sourced by the tests that need a daemon and a session manager in real time, with
#   system  folder that scripts/pipewire-system has filled; without it the test is skipped (77)
#   spa     folder of plugins beside the system's
# Makes $work, a folder that is gone in the end; what lies in $work/daemon/pipewire.conf.d is the daemon's, too.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[ -e "$system/complete" ] || { echo "skipped: no PipeWire in $system (scripts/pipewire-system unpacks it)"; exit 77; }

work=$(mktemp -d)
jobs_of_mine=()
cleanup() {
  [ ${#jobs_of_mine[@]} -eq 0 ] || kill "${jobs_of_mine[@]}" 2>/dev/null
  wait
  rm -rf "$work"
}
trap cleanup EXIT

lib=$(echo "$system"/usr/lib/*-linux-gnu)
mkdir -m 700 "$work/run"
mkdir -p "$work/home" "$work/daemon/pipewire.conf.d" "$work/manager"
cp "$here/pipewire.conf" "$system"/usr/share/pipewire/client*.conf "$work/daemon"
cp -r "$system"/usr/share/wireplumber/. "$work/manager"
sed -i '/bluetooth.lua/d' "$work/manager/wireplumber.conf"
cat >"$work/manager/main.lua.d/90-enable-all.lua" <<'LUA' # no monitors of devices, no portals
load_module("metadata")
default_access.properties["enable-flatpak-portal"] = false
default_access.enable()
device_defaults.properties["use-persistent-storage"] = false
device_defaults.enable()
LUA

into_the_system() { # from here on its commands and libraries are found
  export LD_LIBRARY_PATH=$lib PATH=$system/usr/bin:$PATH HOME=$work/home XDG_RUNTIME_DIR=$work/run PIPEWIRE_RUNTIME_DIR=$work/run
  export PIPEWIRE_CONFIG_DIR=$work/daemon PIPEWIRE_MODULE_DIR=$lib/pipewire-0.3 SPA_PLUGIN_DIR=$spa:$lib/spa-0.2
  export WIREPLUMBER_CONFIG_DIR=$work/manager WIREPLUMBER_DATA_DIR=$work/manager WIREPLUMBER_MODULE_DIR=$lib/wireplumber-0.4
  export DBUS_SESSION_BUS_ADDRESS=disabled:
}

fail() { echo "$1"; tail -n 20 "$work"/*.log; exit 1; }
wait_for() { # what, command...
  local what=$1 deadline=$((SECONDS + 30))
  shift
  until "$@"; do
    [ $SECONDS -lt $deadline ] || fail "after 30 s still no $what"
    sleep 0.2
  done
}
linked() { timeout 10 pw-link -l 2>/dev/null | grep -A1 "^$1\$" | grep -q "$2"; }
has_port() { timeout 10 pw-link "$1" 2>/dev/null | grep -q "^$2\$"; }

start_daemon() { # before what needs the machine: root's processes go first
  PIPEWIRE_DEBUG=3 nice -n -15 pipewire >"$work/daemon.log" 2>&1 & jobs_of_mine+=($!)
  wait_for "daemon" test -S "$work/run/pipewire-0"
  nice -n -15 wireplumber >"$work/manager.log" 2>&1 & jobs_of_mine+=($!)
}

stop() {
  kill "${jobs_of_mine[@]}" 2>/dev/null
  wait
  jobs_of_mine=()
}
