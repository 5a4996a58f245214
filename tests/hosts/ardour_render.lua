-- SPDX-License-Identifier: ISC
-- usage: ardour7-lua ardour_render.lua FOLDER NAME PRESET [PLUGIN INDEX=VALUE,...]...
-- A session with the test source and plug-ins on a stereo bus, saved and exported to FOLDER/NAME.wav.
-- PLUGIN is the URI of an LV2 plug-in or the 32 digits of a VST3 class. INDEX counts its control
-- ports or is the title of a parameter.
local folder, name, preset = arg[1], arg[2], arg[3]
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
local session = create_session (folder .. "/session-" .. name, name, 48000)
local bus = session:new_audio_route (2, 2, nil, 1, "Bus", ARDOUR.PresentationInfo.Flag.AudioBus,
                                     ARDOUR.PresentationInfo.max_order):front ()
local function insert (processor)
  assert (not processor:isnil (), "cannot be loaded")
  assert (bus:add_processor_by_index (processor, -1, nil, true) == 0, "cannot be inserted")
  return processor
end
insert (ARDOUR.LuaAPI.new_luaproc (session, "Host Test Source"))
local latency = 0
for i = 4, #arg, 2 do
  local is_vst3 = #arg[i] == 32 and not arg[i]:find ("[^%x]")
  local kind = is_vst3 and ARDOUR.PluginType.VST3 or ARDOUR.PluginType.LV2
  local plugin = insert (ARDOUR.LuaAPI.new_plugin (session, arg[i], kind, ""))
  local inside, titles, controls = plugin:to_insert ():plugin (0), {}, 0
  for p = 0, inside:parameter_count () - 1 do
    if inside:parameter_is_control (p) then
      titles[inside:parameter_label (p)] = controls
      controls = controls + 1
    end
  end
  for index, value in arg[i + 1]:gmatch ("([^,=]+)=([^,]+)") do
    local at = tonumber (index) or titles[index]
    assert (at and ARDOUR.LuaAPI.set_plugin_insert_param (plugin:to_insert (), at, tonumber (value)),
            "parameter " .. index)
  end
  sleep (1)
  latency = latency + plugin:to_insert ():signal_latency ()
end
sleep (1)
print ("latency", latency)
local export = session:simple_export ()
export:set_name (name)
export:set_folder (folder)
export:set_range (0, 96000)
export:set_preset (preset)
print ("export", export:check_outputs () and export:run_export ())
session:save_state ("")
close_session ()
quit ()
