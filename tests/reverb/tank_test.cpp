// SPDX-License-Identifier: ISC
#include "reverb/tank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

namespace quillworks {
namespace {

template <typename T> using Rows = std::vector<std::vector<T>>;
using Doubles = std::vector<double>;

template <typename T> class TankTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TankTest, Precisions);

TankSpec roomSpec(double sampleRate = 48000)
{
    TankSpec spec;
    spec.sampleRate = sampleRate;
    spec.hasAllPasses = true;
    spec.longest = 0.04;
    spec.longestSpan = 0.008;
    spec.design = OctaveDecayDesign::at(sampleRate);
    return spec;
}

template <typename T> Rows<T> noise(int channels, int frames, unsigned seed = 1)
{
    std::minstd_rand random(seed);
    std::uniform_real_distribution<double> uniform(-1, 1);
    Rows<T> rows(static_cast<std::size_t>(channels), std::vector<T>(std::size_t(frames)));
    for (auto& row : rows)
        for (T& x : row) x = T(uniform(random));
    return rows;
}

template <typename T> Rows<T> impulse(int channels, int frames)
{
    Rows<T> rows(static_cast<std::size_t>(channels), std::vector<T>(std::size_t(frames)));
    rows[0][0] = 1;
    return rows;
}

/// Runs the tank from its present state, which is between two sub-blocks, in calls of `block`.
template <typename T> Rows<T> run(Tank<T>& tank, const Rows<T>& x, int outputs, int block = 512)
{
    const int frames = static_cast<int>(x[0].size());
    Rows<T> y(static_cast<std::size_t>(outputs));
    for (int at = 0, end = 0; at < frames; at = end) {
        end =
            std::min({frames, at / block * block + block, at / kSubBlock * kSubBlock + kSubBlock});
        std::vector<const T*> in;
        for (const auto& row : x) in.push_back(row.data() + at);
        tank.process(in.data(), {end - at, at % kSubBlock});
        for (int o = 0; o < outputs; ++o)
            y[std::size_t(o)].insert(y[std::size_t(o)].end(), tank.output(o),
                                     tank.output(o) + (end - at));
    }
    return y;
}

double energy(const auto& row, std::size_t from, std::size_t to)
{
    double sum = 0;
    for (std::size_t i = from; i < to; ++i) sum += double(row[i]) * double(row[i]);
    return sum;
}

/// The network sample by sample, as it stands in books.
class NaiveTank {
public:
    NaiveTank(const TankSpec& spec, double shortest, double span, double g, double motion,
              std::span<const double> seconds)
        : spec_(spec),
          geometry_(spec.sampleRate, spec.lines, spec.steps, spec.hasAllPasses, spec.seed),
          delays_(geometry_.delays(shortest, span)),
          g_(g),
          motion_(motion)
    {
        for (int i = 0; i < spec.lines; ++i) {
            const double line = delays_.line[at(i)] / spec.sampleRate;
            const double allPass = delays_.allPass[at(i)] / spec.sampleRate;
            const LineLoss loss(seconds, line, allPass);
            const auto gains =
                spec.design->design({loss.seconds.data(), seconds.size()}, line + allPass);
            filters_.push_back({spec.design->sections(gains), {}, {}});
            kept_.push_back(std::pow(10, loss.allPassDb / 20));
        }
    }

    Rows<double> run(const Rows<double>& x)
    {
        const std::size_t frames = x[0].size();
        const int n = spec_.lines;
        Rows<double> lines(at(n), Doubles(frames)), allPasses = lines;
        std::vector<Rows<double>> fed(at(spec_.steps) + 1, lines);
        Rows<double> y(at(spec_.outputs), Doubles(frames));
        for (std::size_t t = 0; t < frames; ++t) {
            for (int i = 0; i < n; ++i) {
                int count = 0;
                for (int k = 0; k < n; ++k) count += k % spec_.inputs == i % spec_.inputs;
                fed[0][at(i)][t] = x[at(i % spec_.inputs)][t] * std::sqrt(n / (2.0 * count));
            }
            Doubles u;
            for (int k = 0; k < spec_.steps; ++k) {
                u.clear();
                for (int i = 0; i < n; ++i)
                    u.push_back(ago(fed[at(k)][at(i)], t, delays_.step[at(k)][at(i)]));
                if (k + 1 < spec_.steps) u = hadamard(u);
                for (int i = 0; i < n; ++i)
                    fed[at(k) + 1][at(i)][t] = u[at(i)] *= geometry_.sign(k, i);
            }
            Doubles v;
            for (int i = 0; i < n; ++i) {
                const double late = ago(lines[at(i)], t, delays_.line[at(i)]);
                double z = filter(filters_[at(i)], late);
                for (int o = 0; o < spec_.outputs; ++o)
                    y[at(o)][t] += z * sign(kTankOutputs[o] % n, i) / std::sqrt(n);
                if (spec_.hasAllPasses) {
                    const double d =
                        kept_[at(i)] * ago(allPasses[at(i)], t, delays_.allPass[at(i)]);
                    allPasses[at(i)][t] = z + g_ * d;
                    z = d - g_ * allPasses[at(i)][t];
                }
                v.push_back(z);
            }
            for (int p = 0; p < n / 2; ++p) {
                const auto [c, s] = rotation(p, t);
                const double a = v[at(2 * p)], b = v[at(2 * p + 1)];
                v[at(2 * p)] = c * a - s * b + u[at(2 * p)];
                v[at(2 * p + 1)] = s * a + c * b + u[at(2 * p + 1)];
            }
            v = hadamard(v);
            for (int i = 0; i < n; ++i) lines[at(i)][t] = v[at(i)];
        }
        return y;
    }

private:
    struct Filter {
        DecaySections sections;
        double x[DecaySections::kMost][2], v[DecaySections::kMost][2];
    };
    static std::size_t at(int i) { return static_cast<std::size_t>(i); }
    static double ago(const Doubles& row, std::size_t t, int delay)
    {
        return t < at(delay) ? 0 : row[t - at(delay)];
    }
    static double sign(int row, int column)
    {
        return __builtin_parity(unsigned(row & column)) ? -1 : 1;
    }
    static Doubles hadamard(const Doubles& x)
    {
        Doubles y(x.size());
        for (std::size_t i = 0; i < x.size(); ++i)
            for (std::size_t k = 0; k < x.size(); ++k)
                y[i] += sign(int(i), int(k)) * x[k] / std::sqrt(double(x.size()));
        return y;
    }
    /// By the difference equations of DecaySections.
    double filter(Filter& f, double x) const
    {
        x *= f.sections.gain;
        for (int s = 0; s < spec_.design->sections(); ++s) {
            const double k = f.sections.kappa[s];
            auto &in = f.x[s], &v = f.v[s];
            const double next = k * (s == 0   ? x + in[0]
                                     : s == 1 ? x - in[0]
                                              : x - in[1]) -
                                f.sections.a1[s] * v[0] - f.sections.a2[s] * v[1];
            in[1] = in[0], in[0] = x;
            v[1] = v[0], v[0] = next;
            x += next;
        }
        return x;
    }
    /// Linear from sub-block to sub-block.
    std::pair<double, double> rotation(int pair, std::size_t t) const
    {
        const auto angle = [&](std::size_t subBlocks) {
            const double speed = 0.12 * (0.7 + 1.2 * pair / spec_.lines) * 32 / spec_.sampleRate;
            const double turns = geometry_.phase(pair) + speed * double(subBlocks);
            return std::numbers::pi * motion_ * std::sin(2 * std::numbers::pi * turns);
        };
        const std::size_t block = t / 32;
        const double share = double(t % 32 + 1) / 32, from = angle(block + 1),
                     to = angle(block + 2);
        return {std::lerp(std::cos(from), std::cos(to), share),
                std::lerp(std::sin(from), std::sin(to), share)};
    }

    TankSpec spec_;
    TankGeometry geometry_;
    TankDelays delays_;
    double g_, motion_;
    std::vector<Filter> filters_;
    Doubles kept_;  // by the all-passes' delays
};

TYPED_TEST(TankTest, IsTheNetworkOfTheBooks)
{
    using T = TypeParam;
    const double times[] = {1.5, 1.4, 1.2, 1, 0.9, 0.8, 0.7, 0.6, 0.4, 0.3};
    TankSpec plain = roomSpec(16000), small = plain;
    plain.hasAllPasses = false;
    plain.inputs = 3;
    plain.design = std::make_shared<ShelfDecayDesign>(16000, 200, 3500);
    small.lines = 8;
    small.steps = 1;
    small.outputs = 8;
    small.inputs = 1;
    small.design = std::make_shared<FlatDecayDesign>(16000);
    TankSpec many = roomSpec(16000);
    many.outputs = many.inputs = 16;
    for (const TankSpec& spec : {roomSpec(16000), plain, small, many}) {
        const std::span seconds(times, std::size_t(spec.design->times()));
        Tank<T> tank;
        tank.setMotion(1);
        tank.setAllPass(0.5);
        tank.prepare(spec);
        tank.setSize(0.02, 0.005);
        tank.setDecay(seconds);
        tank.reset();
        const auto x = noise<double>(spec.inputs, 8000);
        Rows<T> in;
        for (const auto& row : x) in.emplace_back(row.begin(), row.end());
        const auto y = run(tank, in, spec.outputs);
        const auto expected = NaiveTank(spec, 0.02, 0.005, 0.5, 1, seconds).run(x);
        for (std::size_t o = 0; o < y.size(); ++o)
            for (std::size_t t = 0; t < y[o].size(); ++t)
                ASSERT_NEAR(double(y[o][t]), expected[o][t], sizeof(T) == 4 ? 1e-4 : 1e-9)
                    << spec.lines << " lines, output " << o << ", frame " << t;
    }
}

/// Everything moves: size, decay, motion, all-passes, freeze.
template <typename T> Rows<T> eventful(int block)
{
    Tank<T> tank;
    tank.prepare(roomSpec());
    const auto x = noise<T>(2, 3200);
    Rows<T> y(2);
    for (int part = 0; part < 8; ++part) {
        const double times[10] = {1, 1, 1, 1, 0.5 + part, 1, 1, 0.5, 0.5, 0.5};
        tank.setSize(0.02 + 0.003 * part, 0.004);
        tank.setDecay(times);
        tank.setMotion(part % 2);
        tank.setAllPass(0.1 * part);
        tank.freeze(part == 5 || part == 6);
        const auto piece = run(tank, x, 2, block);
        for (std::size_t o = 0; o < 2; ++o)
            y[o].insert(y[o].end(), piece[o].begin(), piece[o].end());
    }
    return y;
}

TYPED_TEST(TankTest, TheBitsDoNotDependOnTheDivisionIntoCalls)
{
    const auto whole = eventful<TypeParam>(3200);
    for (const int block : {1, 17, 100}) EXPECT_EQ(eventful<TypeParam>(block), whole) << block;
}

TYPED_TEST(TankTest, FrozenItNeitherFadesNorGrowsWhateverMoves)
{
    using T = TypeParam;
    for (const double rate : {8000.0, 48000.0}) {
        TankSpec spec = roomSpec(rate);
        spec.outputs = 16;
        Tank<T> tank;
        tank.setMotion(1);
        tank.prepare(spec);
        tank.setSize(0.03, 0.005);
        tank.setAllPass(0.5);
        tank.reset();
        const auto second = static_cast<int>(rate);
        run(tank, noise<T>(2, second), 16);
        tank.freeze(true);
        run(tank, noise<T>(2, second), 16);
        EXPECT_TRUE(tank.isFrozen());
        const auto power = [&] {
            double sum = 0;
            for (const auto& row : run(tank, noise<T>(2, second), 16))
                sum += energy(row, 0, row.size());
            return 10 * std::log10(sum);
        };
        const double before = power();
        const Rows<T> silence(2, std::vector<T>(std::size_t(second)));
        for (int i = 0; i < 8; ++i) run(tank, silence, 16);
        EXPECT_NEAR(power(), before, 0.05) << rate;
    }
}

TYPED_TEST(TankTest, DecaysAsLongAsAskedFor)
{
    using T = TypeParam;
    TankSpec spec = roomSpec();
    spec.design = std::make_shared<FlatDecayDesign>(48000);
    for (const double seconds : {0.4, 2.0, 8.0}) {
        Tank<T> tank;
        tank.setMotion(0.5);
        tank.prepare(spec);
        tank.setDecay({&seconds, 1});
        tank.setSize(0.03, 0.005);
        tank.reset();
        const auto y = run(tank, impulse<T>(2, 72000), 2);
        const double first = energy(y[0], 9600, 12000), last = energy(y[0], 14400, 16800);
        const double late = energy(y[0], 67200, 72000), middle = energy(y[0], 24000, 28800);
        // 0.1 s apart, where a short sound still is one; 0.9 s apart where it lasts.
        const double measured = seconds < 1 ? 6.0 * 0.1 / std::log10(first / last)
                                            : 6.0 * 0.9 / std::log10(middle / late);
        EXPECT_NEAR(measured / seconds, 1, seconds > 5 ? 0.2 : 0.1) << seconds;
    }
}

TYPED_TEST(TankTest, AChangeOfSizeIsHeardNeitherAsAClickNorAsAPitch)
{
    using T = TypeParam;
    const auto above = [](bool changes) {
        Tank<T> tank;
        tank.prepare(roomSpec());
        tank.setSize(0.03, 0.005);
        tank.setAllPass(0.5);
        tank.reset();
        Rows<T> x(2, std::vector<T>(24000));
        for (auto& row : x)
            for (std::size_t i = 0; i < row.size(); ++i)
                row[i] = T(std::sin(2 * std::numbers::pi * 1000 / 48000 * double(i)));
        run(tank, x, 2);
        if (changes) tank.setSize(0.036, 0.006);
        auto y = run(tank, x, 2)[0];
        // Twelve differences weigh what lies above some kilohertz.
        for (int k = 0; k < 12; ++k)
            for (std::size_t i = y.size() - 1; i > 0; --i) y[i] = (y[i] - y[i - 1]) / 2;
        return 10 * std::log10(energy(y, 100, y.size()));
    };
    EXPECT_LT(above(true), above(false) + 10);
}

TYPED_TEST(TankTest, RecoversFromWhatIsNotFinite)
{
    using T = TypeParam;
    Tank<T> tank;
    tank.prepare(roomSpec());
    auto x = noise<T>(2, 9600);
    x[0][100] = std::numeric_limits<T>::quiet_NaN();
    x[1][3000] = std::numeric_limits<T>::infinity();
    run(tank, x, 2);
    const auto y = run(tank, noise<T>(2, 9600), 2);
    EXPECT_GT(energy(y[0], 0, 9600), 0);
    EXPECT_TRUE(std::all_of(y[0].begin(), y[0].end(), [](T v) { return std::isfinite(v); }));
}

}  // namespace
}  // namespace quillworks
