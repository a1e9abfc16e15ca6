#!/bin/bash
# A real OBS Studio on a display of its own, with software rendering: a scene shows the same part of CLIP
# twice, the right one through the filter. Ends well when the filter tells the times of its frames.
#   obs_studio.sh CLIP WORK [PICTURES]
# CLIP is a video of 640x480 in I420. WORK/home is OBS's home folder: a plugin may lie there, otherwise the
# installed one is used. PICTURES: a folder for the main window and the filter's dialog as PNG files, which
# wants ffmpeg and xdotool.
set -euo pipefail
[ -n "${OWN_DISPLAY:-}" ] || OWN_DISPLAY=1 exec xvfb-run -a -s '-screen 0 1280x900x24' "$0" "$@"
clip=$(realpath "$1")
mkdir -p "$2" ${3:+"$3"}
pictures=${3:+$(realpath "$3")}
cd "$2"
work=$(pwd -P)

settings=home/.config/obs-studio
mkdir -p $settings/basic/{scenes,profiles/Noise}
rm -rf $settings/logs state.txt open
cat >$settings/global.ini <<INI
[General]
FirstRun=true
EnableAutoUpdates=false
ConfirmOnExit=false
[Basic]
Profile=Noise
ProfileDir=Noise
SceneCollection=Noise
SceneCollectionFile=Noise
[OBSWebSocket]
FirstLoad=false
ServerEnabled=false
INI
cat >$settings/basic/profiles/Noise/basic.ini <<INI
[General]
Name=Noise
[Video]
BaseCX=1280
BaseCY=720
OutputCX=1280
OutputCY=720
FPSType=1
FPSInt=10
INI

# What an item of the scene or a source of the clip has in common with the other one.
source() {
  echo "{ \"id\": \"ffmpeg_source\", \"name\": \"$1\", \"filters\": [$2], \"settings\": {
    \"local_file\": \"$clip\", \"looping\": true, \"is_local_file\": true } }"
}
item() {
  echo "{ \"name\": \"$1\", \"id\": $2, \"visible\": true, \"pos\": { \"x\": $3, \"y\": 0 }, \"align\": 5,
    \"scale\": { \"x\": 2, \"y\": 2 }, \"crop_left\": 180, \"crop_right\": 140, \"crop_top\": 100, \"crop_bottom\": 20 }"
}
cat >$settings/basic/scenes/Noise.json <<JSON
{ "name": "Noise", "current_scene": "Scene", "current_program_scene": "Scene", "scene_order": [{ "name": "Scene" }],
  "sources": [
    $(source "As it comes" ""),
    $(source Camera '{ "id": "vornycnr_filter", "name": "Camera noise reduction", "settings": {} }'),
    { "id": "scene", "name": "Scene", "settings": { "id_counter": 2, "items": [
      $(item "As it comes" 1 0),
      $(item Camera 2 640) ] } } ],
  "modules": { "scripts-tool": [{ "path": "$work/watch.lua", "settings": {} }] } }
JSON

# Runs inside OBS: writes down what the filter shows once it has had some frames, and opens its dialog
# when it is told to.
cat >watch.lua <<LUA
local obs = obslua
local function exists(name)
  local file = io.open(name)
  if file then file:close() end
  return file ~= nil
end
local waited, opened = 0, false
local function look()
  local camera = obs.obs_get_source_by_name("Camera")
  if camera == nil then return end
  local filter = obs.obs_source_get_filter_by_name(camera, "Camera noise reduction")
  local properties = obs.obs_source_properties(filter)
  local text = obs.obs_property_description(obs.obs_properties_get(properties, "state"))
  obs.obs_properties_destroy(properties)
  if text:find("ms per frame") then waited = waited + 1 end
  if waited == 10 then
    local file = io.open("$work/state.new", "w")
    file:write(text, "\n")
    file:close()
    os.rename("$work/state.new", "$work/state.txt")
  end
  if not opened and exists("$work/open") then
    obs.obs_frontend_open_source_filters(camera)
    opened = true
  end
  obs.obs_source_release(filter)
  obs.obs_source_release(camera)
end
function script_load(settings) obs.timer_add(look, 300) end
LUA

# await WHAT COMMAND... : tries the command for a minute.
await() {
  local what=$1
  shift
  for _ in $(seq 300); do
    "$@" >/dev/null 2>&1 && return
    kill -0 "$obs" 2>/dev/null || break
    sleep 0.2
  done
  echo "no $what"
  tail -n 30 obs.log
  return 1
}
# grab WINDOW_TITLE FILE
grab() {
  local x y width height
  read -r x y width height < <(xdotool search --onlyvisible --name "$1" getwindowgeometry --shell |
    sed 's/.*=//' | sed -n '2,5p' | paste -sd' ')
  ffmpeg -v error -y -f x11grab -draw_mouse 0 -video_size "${width}x$height" -i "$DISPLAY+$x,$y" -frames:v 1 "$2"
}

# Rendering gets one thread, so that the picture has the time of frames on a machine with some air.
export HOME=$work/home QT_QPA_PLATFORM=xcb LIBGL_ALWAYS_SOFTWARE=1 LP_NUM_THREADS=1
unset XDG_CONFIG_HOME
obs --multi --disable-updater >obs.log 2>&1 &
obs=$!
trap 'kill "$obs" 2>/dev/null; wait "$obs" 2>/dev/null || true' EXIT
await "frame went through the filter" test -e state.txt
cat state.txt
grep -q '^I420 640x480: .* ms per frame' state.txt
[ -n "$pictures" ] || exit 0

xdotool search --onlyvisible --name '^OBS ' windowmove 0 0 windowsize 1280 800
sleep 3
grab '^OBS ' "$pictures/window.png"
touch open
await "dialog" xdotool search --onlyvisible --name '^Filters for'
sleep 3
grab '^Filters for' "$pictures/filter.png"
