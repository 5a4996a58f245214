// SPDX-License-Identifier: ISC
// JSON Lines of what the effects measure, one line per block and effect.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "chain.h"
#include "displays.h"
#include "output_file.h"
#include "session.h"

namespace quillhost {

class MeterLog {
public:
    /// Opens the editors' meters of the effects, since some of them run only then. Call it when
    /// the effects are prepared: their meters depend on the channels.
    MeterLog(const std::string& path, const std::vector<Effect>& effects);
    /// {"frame","frames","fx","values","parameters"}; what is not finite is null.
    void write(const Chain& chain, std::size_t effect, std::int64_t frame, int frames);
    void finish();

private:
    struct Source {
        Effect effect;
        Displays displays;  // fed, since some meters come from there
        std::vector<std::string> meterKeys, parameterKeys;  // with quotes and colon
    };
    void flush();

    std::vector<Source> sources_;
    OutputFile file_;
    std::string text_;
};

}  // namespace quillhost
