// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "editors/displays/blend.cpp"
#include "dsp/simd.h"
//
#include "editors/displays/blend.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::editors::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// How much of what is below a colour is left, of 256.
inline unsigned leftOf(std::uint32_t colour)
{
    const auto alpha = colour >> 24;
    return 256 - (alpha + (alpha >> 7));
}

#if HWY_TARGET == HWY_SCALAR

/// `cover` of 256.
inline std::uint32_t over(std::uint32_t below, std::uint32_t colour, unsigned cover)
{
    const unsigned kept = 256 - cover + (leftOf(colour) * cover >> 8);
    std::uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        const unsigned own = colour >> shift & 0xFF, under = below >> shift & 0xFF;
        out |= ((own * cover + under * kept + 128) >> 8) << shift;
    }
    return out;
}

void blendStepsOf(std::uint32_t* pixels, std::ptrdiff_t stride, int rows, const std::int16_t* steps,
                  const std::uint32_t* colours)
{
    int sums[kStrip] = {};
    for (int y = 0; y < rows; ++y, pixels += stride)
        for (int i = 0; i < kStrip; ++i) {
            sums[i] += steps[y * kStrip + i];
            const auto cover = static_cast<unsigned>(sums[i] + kCovered / 512) / (kCovered / 256);
            if (cover > 0 && colours[y]) pixels[i] = over(pixels[i], colours[y], cover);
        }
}

void blendLightOf(std::uint32_t* to, const std::uint32_t* below, const std::uint16_t* light,
                  std::uint32_t colour)
{
    for (int i = 0; i < kStrip; ++i) {
        const unsigned share = light[i] >> 8;
        to[i] = over(below[i], colour, share + (share >> 7));
    }
}

bool fadeLightOf(std::uint16_t* light, std::uint16_t keep, std::uint16_t faintest)
{
    unsigned any = 0;
    for (int i = 0; i < kStrip; ++i) {
        const auto left = static_cast<std::uint16_t>(std::uint32_t(light[i]) * keep >> 16);
        light[i] = left < faintest ? std::uint16_t{0} : left;
        any |= light[i];
    }
    return any != 0;
}

#else

using Pixel = hn::CappedTag<std::uint32_t, kStrip>;
using Half = hn::Repartition<std::uint16_t, Pixel>;  // two of a pixel's bytes
constexpr int kLanes = static_cast<int>(hn::MaxLanes(Pixel()));

/// One colour over pixels, by bytes in pairs: none of the products is more than 65535, and neither
/// is their sum.
class Colour {
public:
    explicit Colour(std::uint32_t colour)
    {
        const auto all = hn::Set(Pixel(), colour);
        even_ = hn::BitCast(Half(), hn::And(all, hn::Set(Pixel(), 0x00FF00FF)));
        odd_ = hn::ShiftRight<8>(hn::BitCast(Half(), all));
        left_ = hn::Set(Half(), static_cast<std::uint16_t>(leftOf(colour)));
    }
    /// `cover` of 256, as a number of 32 bits.
    template <class V> V over(V below, V cover) const
    {
        const Half d;
        const auto c = hn::BitCast(d, hn::Or(cover, hn::ShiftLeft<16>(cover)));
        const auto kept =
            hn::Add(hn::Sub(hn::Set(d, 256), c), hn::ShiftRight<8>(hn::Mul(left_, c)));
        const auto half = hn::Set(d, 128);
        const auto under = hn::BitCast(d, below);
        const auto lower = hn::BitCast(d, hn::And(below, hn::Set(Pixel(), 0x00FF00FF)));
        const auto even = hn::Add(hn::Add(hn::Mul(even_, c), hn::Mul(lower, kept)), half);
        const auto odd =
            hn::Add(hn::Add(hn::Mul(odd_, c), hn::Mul(hn::ShiftRight<8>(under), kept)), half);
        return hn::Or(hn::BitCast(Pixel(), hn::ShiftRight<8>(even)),
                      hn::And(hn::BitCast(Pixel(), odd), hn::Set(Pixel(), 0xFF00FF00)));
    }

private:
    hn::Vec<Half> even_, odd_, left_;
};

void blendStepsOf(std::uint32_t* pixels, std::ptrdiff_t stride, int rows, const std::int16_t* steps,
                  const std::uint32_t* colours)
{
    const Pixel d;
    const hn::RebindToSigned<Pixel> di;
    const hn::Rebind<std::int16_t, Pixel> narrow;
    for (int i = 0; i < kStrip; i += kLanes) {
        auto sum = hn::Set(di, kCovered / 512);
        auto* to = pixels + i;
        auto colour = colours[0];
        Colour ink(colour);
        for (int y = 0; y < rows; ++y, to += stride) {
            sum = hn::Add(sum, hn::PromoteTo(di, hn::LoadU(narrow, steps + y * kStrip + i)));
            const auto cover = hn::BitCast(d, hn::ShiftRight<2>(sum));
            static_assert(kCovered == 256 << 2);
            if (hn::AllTrue(d, hn::Eq(cover, hn::Zero(d)))) continue;
            if (colours[y] != colour) {
                colour = colours[y];
                ink = Colour(colour);
            }
            if (colour != 0) hn::StoreU(ink.over(hn::LoadU(d, to), cover), d, to);
        }
    }
}

void blendLightOf(std::uint32_t* to, const std::uint32_t* below, const std::uint16_t* light,
                  std::uint32_t colour)
{
    const Pixel d;
    const hn::Rebind<std::uint16_t, Pixel> narrow;
    const Colour ink(colour);
    for (int i = 0; i < kStrip; i += kLanes) {
        const auto share = hn::ShiftRight<8>(hn::PromoteTo(d, hn::LoadU(narrow, light + i)));
        const auto cover = hn::Add(share, hn::ShiftRight<7>(share));
        hn::StoreU(ink.over(hn::LoadU(d, below + i), cover), d, to + i);
    }
}

bool fadeLightOf(std::uint16_t* light, std::uint16_t keep, std::uint16_t faintest)
{
    const hn::CappedTag<std::uint16_t, kStrip> d;
    const auto share = hn::Set(d, keep), least = hn::Set(d, faintest);
    auto any = hn::Zero(d);
    for (int i = 0; i < kStrip; i += static_cast<int>(hn::MaxLanes(d))) {
        const auto left = hn::MulHigh(hn::LoadU(d, light + i), share);
        const auto kept = hn::IfThenElseZero(hn::Eq(hn::Max(left, least), left), left);
        hn::StoreU(kept, d, light + i);
        any = hn::Or(any, kept);
    }
    return !hn::AllTrue(d, hn::Eq(any, hn::Zero(d)));
}

#endif

}  // namespace
}  // namespace quillworks::editors::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks::editors {

HWY_EXPORT(blendStepsOf);
HWY_EXPORT(blendLightOf);
HWY_EXPORT(fadeLightOf);

void (*const blendSteps)(std::uint32_t*, std::ptrdiff_t, int, const std::int16_t*,
                         const std::uint32_t*) = SIMD_CHOOSE(blendStepsOf);
void (*const blendLight)(std::uint32_t*, const std::uint32_t*, const std::uint16_t*,
                         std::uint32_t) = SIMD_CHOOSE(blendLightOf);
bool (*const fadeLight)(std::uint16_t*, std::uint16_t, std::uint16_t) = SIMD_CHOOSE(fadeLightOf);

}  // namespace quillworks::editors
#endif
