-- SPDX-License-Identifier: ISC
-- usage: ardour7-lua ardour_reload.lua FOLDER SESSION NAME PRESET
-- Opens a session that ardour_render.lua has left and exports it again.
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
local session = load_session (arg[1] .. "/session-" .. arg[2], arg[2])
sleep (1)
local export = session:simple_export ()
export:set_name (arg[3])
export:set_folder (arg[1])
export:set_range (0, 96000)
export:set_preset (arg[4])
print ("export", export:check_outputs () and export:run_export ())
close_session ()
quit ()
