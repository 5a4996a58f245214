// SPDX-License-Identifier: ISC
#include "reverb/box_room.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>

namespace quillworks {
namespace {

constexpr int kHighestOrder = 4;
constexpr double kMostReflectance = 0.97;
constexpr double kEarHeight = 1.6;     // m
constexpr double kFromTheWall = 0.05;  // of the width, the least
/// Length, width and height, by shape.
constexpr double kProportions[kRoomShapes][3] = {
    {1.60, 1.26, 1}, {1.25, 1.10, 1}, {2.2, 1.4, 1}, {3.0, 1.2, 1.3}, {8, 1, 1}};

/// All images of order 1 to 4: how often each pair of walls is met, the sign telling which first.
struct Order {
    std::array<std::int8_t, 3> at;
    std::int8_t order;
};
constexpr int kImages = 128;
constexpr std::array<Order, kImages> imageOrders()
{
    std::array<Order, kImages> images{};
    std::size_t n = 0;
    const auto magnitude = [](int i) { return i < 0 ? -i : i; };
    for (int x = -kHighestOrder; x <= kHighestOrder; ++x)
        for (int y = -kHighestOrder; y <= kHighestOrder; ++y)
            for (int z = -kHighestOrder; z <= kHighestOrder; ++z) {
                const int order = magnitude(x) + magnitude(y) + magnitude(z);
                if (order < 1 || order > kHighestOrder) continue;
                images[n++] = {{std::int8_t(x), std::int8_t(y), std::int8_t(z)},
                               std::int8_t(order)};
            }
    return images;
}
constexpr auto kOrders = imageOrders();

/// Where an image lies along one axis.
double imageAt(int i, double extent, double source)
{
    return i * extent + (i % 2 == 0 ? source : extent - source);
}

}  // namespace

BoxRoom::BoxRoom(RoomShape shape, double size) noexcept
{
    const auto& p = kProportions[static_cast<int>(shape)];
    const double scale = size / std::cbrt(p[0] * p[1] * p[2]);
    length_ = p[0] * scale;
    width_ = p[1] * scale;
    height_ = p[2] * scale;
}

double BoxRoom::reflectance(double decaySeconds) const noexcept
{
    const double volume = length_ * width_ * height_;
    const double surface = 2 * (length_ * width_ + width_ * height_ + height_ * length_);
    const double path = 4 * volume / surface;
    return std::min(kMostReflectance, std::pow(10, -3 * path / (kSoundSpeed * decaySeconds)));
}

int BoxRoom::reflections(int side, double distance, double reflectance,
                         Reflections& to) const noexcept
{
    // x from the wall in front to the one behind, y from right to left.
    const double ear[3] = {0.62 * length_, 0.47 * width_, std::min(kEarHeight, 0.4 * height_)};
    const double reach = this->reach(distance), angle = side * std::numbers::pi / 6;
    const double extent[3] = {length_, width_, height_};
    const double source[3] = {ear[0] - reach * std::cos(angle),
                              std::clamp(ear[1] + reach * std::sin(angle), kFromTheWall * width_,
                                         (1 - kFromTheWall) * width_),
                              ear[2]};
    const double straight = std::hypot(source[0] - ear[0], source[1] - ear[1]);
    double ofOrder[kHighestOrder + 1] = {1};
    for (int i = 1; i <= kHighestOrder; ++i) ofOrder[i] = ofOrder[i - 1] * reflectance;

    struct Image {
        double gain, far;
        double way[3];
        int order;
    };
    std::array<Image, kImages> images;
    std::transform(kOrders.begin(), kOrders.end(), images.begin(), [&](const Order& o) {
        Image image;
        for (std::size_t axis = 0; axis < 3; ++axis)
            image.way[axis] = imageAt(o.at[axis], extent[axis], source[axis]) - ear[axis];
        image.far = std::hypot(image.way[0], image.way[1], image.way[2]);
        image.order = o.order;
        image.gain = ofOrder[o.order] * straight / image.far;
        return image;
    });
    std::nth_element(images.begin(), images.begin() + kMostReflections, images.end(),
                     [](const Image& a, const Image& b) { return a.gain > b.gain; });
    for (std::size_t i = 0; i < kMostReflections; ++i) {
        const Image& image = images[i];
        const double front = -image.way[0], left = image.way[1];
        to[i] = {(image.far - straight) / kSoundSpeed, image.gain, image.order,
                 std::atan2(left, front), std::asin(image.way[2] / image.far)};
    }
    return kMostReflections;
}

}  // namespace quillworks
