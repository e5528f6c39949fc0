// PlaneAxes: a 2D coordinate frame (origin and unit direction of its x axis)
// with conversions of points and frames between its local coordinates and
// the global ones; and small 3D vector helpers.
#pragma once

#include "support/types.h"

namespace kx {

struct PlaneAxes {
    double origin_x;
    double origin_y;
    double direction_x;  // unit vector of the local x axis
    double direction_y;
};

// A frame whose x axis is turned `angle` radians from the global x axis.
PlaneAxes *planeaxes_create(double origin_x, double origin_y, double angle);
// A frame whose x axis points along (direction_x, direction_y), normalised;
// a zero direction is reported and taken as the global x axis.
PlaneAxes *planeaxes_create_with_direction(double origin_x, double origin_y, double direction_x,
                                           double direction_y);
void planeaxes_destroy(PlaneAxes **axes);

// Angle in radians of the frame's x axis, in (-pi, pi].
double planeaxes_angle(const PlaneAxes *axes);

// A point given in the frame's coordinates, in global coordinates; and back.
void planeaxes_point_to_global(const PlaneAxes *axes, double x, double y, double *global_x,
                               double *global_y);
void planeaxes_point_to_local(const PlaneAxes *axes, double x, double y, double *local_x,
                              double *local_y);

// A frame given in `axes`' coordinates (origin and direction), expressed in
// global coordinates, and the reverse. The direction given is normalised.
void planeaxes_frame_to_global(const PlaneAxes *axes, double origin_x, double origin_y,
                               double direction_x, double direction_y, double *global_origin_x,
                               double *global_origin_y, double *global_direction_x,
                               double *global_direction_y);
void planeaxes_frame_to_local(const PlaneAxes *axes, double origin_x, double origin_y,
                              double direction_x, double direction_y, double *local_origin_x,
                              double *local_origin_y, double *local_direction_x,
                              double *local_direction_y);
// The same, with frames and results as new PlaneAxes (the caller owns them).
PlaneAxes *planeaxes_to_global(const PlaneAxes *axes, const PlaneAxes *local_frame);
PlaneAxes *planeaxes_to_local(const PlaneAxes *axes, const PlaneAxes *global_frame);

// Normalises (x, y, z) in place; a zero vector is left as it is and gives
// FALSO.
kx_bool16 vector3_unit(double *x, double *y, double *z);
// result = a x b (result may be a or b).
void vector3_cross(const double a[3], const double b[3], double result[3]);

}  // namespace kx
