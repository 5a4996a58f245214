-- SPDX-License-Identifier: ISC
-- usage: ardour7-lua ardour_editor.lua FOLDER CLASS
-- A session FOLDER/song with a VST3 plug-in, by the 32 digits of its class, first in the master bus.
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
local session = create_session (arg[1] .. "/song", "song", 48000)
local plugin = ARDOUR.LuaAPI.new_plugin (session, arg[2], ARDOUR.PluginType.VST3, "")
assert (not plugin:isnil (), "cannot be loaded")
assert (session:master_out ():add_processor_by_index (plugin, 0, nil, true) == 0, "cannot be inserted")
session:save_state ("")
close_session ()
quit ()
