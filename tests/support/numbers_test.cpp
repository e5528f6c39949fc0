// Rounding, hex text, pointer keys, plane axes, 3D vectors and unique ids.
#include <cmath>
#include <set>
#include <thread>
#include <vector>

#include "support/geometry.h"
#include "support/numbers.h"
#include "support/uniqueid.h"
#include "test_support.h"

namespace {

using NumbersTest = kxtest::LibraryTest;

TEST_F(NumbersTest, RoundToDecimalsHalvesAwayFromZero) {
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(2.675, 2), 2.68);  // stored as 2.67499999...
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(-2.675, 2), -2.68);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(1.005, 2), 1.01);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(0.125, 2), 0.13);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(0.1249, 2), 0.12);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(3.14159, 0), 3.0);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(1234.5, -2), 1200.0);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(0.5, 0), 1.0);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(-0.5, 0), -1.0);
    // Nothing left to round, or no room to scale: unchanged.
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(1e300, 10), 1e300);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(1.7976931348623157e308, 2), 1.7976931348623157e308);
    EXPECT_DOUBLE_EQ(kx::number_round_decimals(0.1, 400), 0.1);
    EXPECT_TRUE(std::isnan(kx::number_round_decimals(NAN, 2)));
}

TEST_F(NumbersTest, RoundToLong) {
    EXPECT_EQ(kx::number_round_to_long(2.5), 3);
    EXPECT_EQ(kx::number_round_to_long(-2.5), -3);
    EXPECT_EQ(kx::number_round_to_long(2.4999), 2);
    EXPECT_EQ(kx::number_round_to_long(1e20), 2147483647);
    EXPECT_EQ(kx::number_round_to_long(-1e20), -2147483647 - 1);
    EXPECT_EQ(kx::number_round_to_long(NAN), 0);
}

TEST_F(NumbersTest, HexTextAndPointers) {
    EXPECT_EQ(kx::number_hex_to_ulong(u"0"), 0u);
    EXPECT_EQ(kx::number_hex_to_ulong(u""), 0u);
    EXPECT_EQ(kx::number_hex_to_ulong(u"DeadBeef"), 0xDEADBEEFu);
    EXPECT_EQ(kx::number_hex_to_ulong(u"ffffffff"), 4294967295u);
    EXPECT_EQ(kx::number_hex_to_ulong(u"123456789"), 0x23456789u);  // the top shifts out
    expect_reports();
    EXPECT_EQ(kx::number_hex_to_ulong(u"1Fg7"), 0x1Fu);
    EXPECT_TRUE(asserts().saw("is_hex_digit"));

    int a = 0, b = 0;
    EXPECT_NE(kx::number_pointer_to_ulong(&a), kx::number_pointer_to_ulong(&b));
    EXPECT_EQ(kx::number_pointer_to_ulong(&a), kx::number_pointer_to_ulong(&a));
    EXPECT_EQ(kx::number_pointer_to_ulong(nullptr), 0u);
}

TEST_F(NumbersTest, PlaneAxesConvertPointsAndFrames) {
    // Origin (10, 5), x axis along global +y.
    kx::PlaneAxes *axes = kx::planeaxes_create(10.0, 5.0, M_PI / 2);
    EXPECT_NEAR(kx::planeaxes_angle(axes), M_PI / 2, 1e-12);
    double x, y;
    kx::planeaxes_point_to_global(axes, 2.0, 1.0, &x, &y);
    EXPECT_NEAR(x, 9.0, 1e-12);
    EXPECT_NEAR(y, 7.0, 1e-12);
    kx::planeaxes_point_to_local(axes, x, y, &x, &y);
    EXPECT_NEAR(x, 2.0, 1e-12);
    EXPECT_NEAR(y, 1.0, 1e-12);

    // A frame given by a direction that is not of unit length.
    kx::PlaneAxes *inner = kx::planeaxes_create_with_direction(1.0, 0.0, 0.0, -3.0);
    kx::PlaneAxes *global = kx::planeaxes_to_global(axes, inner);
    EXPECT_NEAR(global->origin_x, 10.0, 1e-12);
    EXPECT_NEAR(global->origin_y, 6.0, 1e-12);
    EXPECT_NEAR(global->direction_x, 1.0, 1e-12);  // -y turned a quarter: +x
    EXPECT_NEAR(global->direction_y, 0.0, 1e-12);
    kx::PlaneAxes *back = kx::planeaxes_to_local(axes, global);
    EXPECT_NEAR(back->origin_x, inner->origin_x, 1e-12);
    EXPECT_NEAR(back->origin_y, inner->origin_y, 1e-12);
    EXPECT_NEAR(back->direction_x, inner->direction_x, 1e-12);
    EXPECT_NEAR(back->direction_y, inner->direction_y, 1e-12);

    double ox, oy, dx, dy;
    kx::planeaxes_frame_to_local(axes, 10.0, 5.0, 0.0, 2.0, &ox, &oy, &dx, &dy);
    EXPECT_NEAR(ox, 0.0, 1e-12);
    EXPECT_NEAR(oy, 0.0, 1e-12);
    EXPECT_NEAR(dx, 1.0, 1e-12);
    EXPECT_NEAR(dy, 0.0, 1e-12);

    for (kx::PlaneAxes **p : {&axes, &inner, &global, &back}) kx::planeaxes_destroy(p);
    EXPECT_EQ(axes, nullptr);

    expect_reports();
    kx::PlaneAxes *degenerate = kx::planeaxes_create_with_direction(0.0, 0.0, 0.0, 0.0);
    EXPECT_EQ(degenerate->direction_x, 1.0);
    EXPECT_TRUE(asserts().saw("usable"));
    kx::planeaxes_destroy(&degenerate);
}

TEST_F(NumbersTest, VectorHelpers) {
    double x = 3.0, y = 0.0, z = 4.0;
    EXPECT_TRUE(kx::vector3_unit(&x, &y, &z));
    EXPECT_DOUBLE_EQ(x, 0.6);
    EXPECT_DOUBLE_EQ(z, 0.8);
    x = 1e300, y = 1e300, z = 0.0;  // would overflow if squared directly
    EXPECT_TRUE(kx::vector3_unit(&x, &y, &z));
    EXPECT_NEAR(x, std::sqrt(0.5), 1e-15);
    x = y = z = 0.0;
    EXPECT_FALSE(kx::vector3_unit(&x, &y, &z));
    EXPECT_EQ(x, 0.0);

    const double ex[3] = {1, 0, 0}, ey[3] = {0, 1, 0};
    double result[3];
    kx::vector3_cross(ex, ey, result);
    EXPECT_EQ(result[0], 0.0);
    EXPECT_EQ(result[1], 0.0);
    EXPECT_EQ(result[2], 1.0);
    double a[3] = {2, 3, 4};
    const double b[3] = {5, 6, 7};
    kx::vector3_cross(a, b, a);  // the result may overwrite an argument
    EXPECT_EQ(a[0], -3.0);
    EXPECT_EQ(a[1], 6.0);
    EXPECT_EQ(a[2], -3.0);
}

TEST_F(NumbersTest, UniqueIdsAreDistinctAcrossThreads) {
    constexpr int PER_THREAD = 50000;
    std::vector<std::vector<uint32_t>> ids(4);
    std::vector<std::thread> threads;
    for (auto &list : ids)
        threads.emplace_back([&list] {
            for (int i = 0; i < PER_THREAD; i++) list.push_back(kx::uniqueid_new());
        });
    for (auto &thread : threads) thread.join();
    std::set<uint32_t> all;
    for (const auto &list : ids) all.insert(list.begin(), list.end());
    EXPECT_EQ(all.size(), 4u * PER_THREAD);
    EXPECT_EQ(all.count(0), 0u);
}

}  // namespace
