// SPDX-License-Identifier: ISC
// The audio half of the echo effects.
#pragma once

#include "delay/echo_settings.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

/// Takes any layout of up to 16 channels as it is.
template <template <typename> class Core> class EchoAlgorithm : public PrecisionAlgorithm<Core> {
public:
    using PrecisionAlgorithm<Core>::PrecisionAlgorithm;

    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override
    {
        return input.channels <= kMostEchoChannels &&
               PrecisionAlgorithm<Core>::acceptsArrangement(input, output);
    }
};

}  // namespace quillworks
