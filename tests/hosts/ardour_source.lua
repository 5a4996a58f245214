-- SPDX-License-Identifier: ISC
-- A generator for Ardour: hits of decaying noise, the same at every frame of the song; silent while
-- the transport stands.
ardour { ["type"] = "dsp", name = "Host Test Source", category = "Utility", license = "ISC",
         author = "Quillworks Audio", description = "Hits of noise that depend on the song position alone." }

function dsp_ioconfig () return { { audio_in = -1, audio_out = -1 } } end

function dsp_run (ins, outs, n)
  local start, rolling = Session:transport_sample (), Session:transport_rolling ()
  for c = 1, #outs do
    local x = {}
    for i = 1, n do
      local frame = start + i - 1
      local h = (frame * 2654435761 + c * 40503) & 0xffffffff
      h = ((h ~ (h >> 15)) * 2246822519) & 0xffffffff
      x[i] = rolling and ((h >> 8) / 8388608 - 1) * 0.7 * math.exp (-(frame % 12000) / 3000) or 0
    end
    outs[c]:set_table (x, n)
  end
end
