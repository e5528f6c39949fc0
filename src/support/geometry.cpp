#define KX_UNIT "kxgeometry"
#include "support/geometry.h"

#include <cmath>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {
namespace {

// Normalises a 2D direction; a zero (or not finite) one becomes the x axis.
void unit_direction(double *x, double *y) {
    const double length = std::hypot(*x, *y);
    const bool usable = length > 0.0 && std::isfinite(length);
    kx_assert(usable);
    if (!usable) {
        *x = 1.0;
        *y = 0.0;
        return;
    }
    *x /= length;
    *y /= length;
}

const PlaneAxes IDENTITY = {0.0, 0.0, 1.0, 0.0};

const PlaneAxes &frame_or_identity(const PlaneAxes *axes) {
    kx_assert_not_null(axes);
    return axes != nullptr ? *axes : IDENTITY;
}

// Rotations by the frame's direction and by its inverse.
void rotate(const PlaneAxes &f, double x, double y, double *rx, double *ry) {
    const double nx = x * f.direction_x - y * f.direction_y;
    const double ny = x * f.direction_y + y * f.direction_x;
    *rx = nx;
    *ry = ny;
}

void unrotate(const PlaneAxes &f, double x, double y, double *rx, double *ry) {
    const double nx = x * f.direction_x + y * f.direction_y;
    const double ny = -x * f.direction_y + y * f.direction_x;
    *rx = nx;
    *ry = ny;
}

}  // namespace

PlaneAxes *planeaxes_create(double origin_x, double origin_y, double angle) {
    return planeaxes_create_with_direction(origin_x, origin_y, std::cos(angle), std::sin(angle));
}

PlaneAxes *planeaxes_create_with_direction(double origin_x, double origin_y, double direction_x,
                                           double direction_y) {
    PlaneAxes *axes = mem_new_zeroed<PlaneAxes>();
    unit_direction(&direction_x, &direction_y);
    *axes = PlaneAxes{origin_x, origin_y, direction_x, direction_y};
    return axes;
}

void planeaxes_destroy(PlaneAxes **axes) {
    kx_assert_not_null(axes);
    if (axes == nullptr) return;
    kx_assert_not_null(*axes);
    mem_free_and_clear(axes);
}

double planeaxes_angle(const PlaneAxes *axes) {
    const PlaneAxes &f = frame_or_identity(axes);
    return std::atan2(f.direction_y, f.direction_x);
}

void planeaxes_point_to_global(const PlaneAxes *axes, double x, double y, double *global_x,
                               double *global_y) {
    const PlaneAxes &f = frame_or_identity(axes);
    kx_assert_not_null(global_x);
    kx_assert_not_null(global_y);
    if (global_x == nullptr || global_y == nullptr) return;
    double rx, ry;
    rotate(f, x, y, &rx, &ry);
    *global_x = f.origin_x + rx;
    *global_y = f.origin_y + ry;
}

void planeaxes_point_to_local(const PlaneAxes *axes, double x, double y, double *local_x,
                              double *local_y) {
    const PlaneAxes &f = frame_or_identity(axes);
    kx_assert_not_null(local_x);
    kx_assert_not_null(local_y);
    if (local_x == nullptr || local_y == nullptr) return;
    unrotate(f, x - f.origin_x, y - f.origin_y, local_x, local_y);
}

void planeaxes_frame_to_global(const PlaneAxes *axes, double origin_x, double origin_y,
                               double direction_x, double direction_y, double *global_origin_x,
                               double *global_origin_y, double *global_direction_x,
                               double *global_direction_y) {
    kx_assert_not_null(global_direction_x);
    kx_assert_not_null(global_direction_y);
    if (global_direction_x == nullptr || global_direction_y == nullptr) return;
    const PlaneAxes &f = frame_or_identity(axes);
    planeaxes_point_to_global(&f, origin_x, origin_y, global_origin_x, global_origin_y);
    unit_direction(&direction_x, &direction_y);
    rotate(f, direction_x, direction_y, global_direction_x, global_direction_y);
}

void planeaxes_frame_to_local(const PlaneAxes *axes, double origin_x, double origin_y,
                              double direction_x, double direction_y, double *local_origin_x,
                              double *local_origin_y, double *local_direction_x,
                              double *local_direction_y) {
    kx_assert_not_null(local_direction_x);
    kx_assert_not_null(local_direction_y);
    if (local_direction_x == nullptr || local_direction_y == nullptr) return;
    const PlaneAxes &f = frame_or_identity(axes);
    planeaxes_point_to_local(&f, origin_x, origin_y, local_origin_x, local_origin_y);
    unit_direction(&direction_x, &direction_y);
    unrotate(f, direction_x, direction_y, local_direction_x, local_direction_y);
}

PlaneAxes *planeaxes_to_global(const PlaneAxes *axes, const PlaneAxes *local_frame) {
    const PlaneAxes &frame = frame_or_identity(local_frame);
    PlaneAxes *result = mem_new_zeroed<PlaneAxes>();
    planeaxes_frame_to_global(axes, frame.origin_x, frame.origin_y, frame.direction_x,
                              frame.direction_y, &result->origin_x, &result->origin_y,
                              &result->direction_x, &result->direction_y);
    return result;
}

PlaneAxes *planeaxes_to_local(const PlaneAxes *axes, const PlaneAxes *global_frame) {
    const PlaneAxes &frame = frame_or_identity(global_frame);
    PlaneAxes *result = mem_new_zeroed<PlaneAxes>();
    planeaxes_frame_to_local(axes, frame.origin_x, frame.origin_y, frame.direction_x,
                             frame.direction_y, &result->origin_x, &result->origin_y,
                             &result->direction_x, &result->direction_y);
    return result;
}

kx_bool16 vector3_unit(double *x, double *y, double *z) {
    kx_assert_not_null(x);
    kx_assert_not_null(y);
    kx_assert_not_null(z);
    if (x == nullptr || y == nullptr || z == nullptr) return FALSO;
    // Scaled by the largest component first, so huge or tiny vectors neither
    // overflow nor underflow.
    const double largest = std::fmax(std::fabs(*x), std::fmax(std::fabs(*y), std::fabs(*z)));
    if (!(largest > 0.0) || !std::isfinite(largest)) return FALSO;
    const double sx = *x / largest, sy = *y / largest, sz = *z / largest;
    const double length = std::sqrt(sx * sx + sy * sy + sz * sz);
    *x = sx / length;
    *y = sy / length;
    *z = sz / length;
    return CIERTO;
}

void vector3_cross(const double a[3], const double b[3], double result[3]) {
    kx_assert_not_null(a);
    kx_assert_not_null(b);
    kx_assert_not_null(result);
    if (a == nullptr || b == nullptr || result == nullptr) return;
    const double x = a[1] * b[2] - a[2] * b[1];
    const double y = a[2] * b[0] - a[0] * b[2];
    const double z = a[0] * b[1] - a[1] * b[0];
    result[0] = x;
    result[1] = y;
    result[2] = z;
}

}  // namespace kx
