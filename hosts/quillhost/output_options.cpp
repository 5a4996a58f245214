// SPDX-License-Identifier: ISC
#include "output_options.h"

namespace quillhost {

CLI::Option* addFormat(CLI::App& app, int& target, const std::string& help)
{
    return addChoice(app, "--format", target, {"pcm16", "pcm24", "pcm32", "float32", "float64"},
                     help);
}

CLI::Option* addDither(CLI::App& app, int& target)
{
    return addChoice(app, "--dither", target, {"tpdf", "shaped", "none"},
                     "noise where OUT has fewer bits than the sound (tpdf)");
}

}  // namespace quillhost
