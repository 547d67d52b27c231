// Helpers shared by the tests of the fits: point-vector shorthands, the
// per-type tolerance, Eigen views of points and a compact number format.
#ifndef METROMATH_TESTS_APPROXIMATE_TEST_UTIL_H
#define METROMATH_TESTS_APPROXIMATE_TEST_UTIL_H

#include <math/point.h>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace approx_test {

template <class T>
using V2 = std::vector<math::Cpoint2<T>>;
template <class T>
using V3 = std::vector<math::Cpoint3<T>>;

// Tolerance by type: the first value for double, the second for float.
template <class T>
T tolOf(double forDouble, double forFloat) {
    return static_cast<T>(std::is_same<T, double>::value ? forDouble : forFloat);
}

template <class T>
V2<T> pts2(std::initializer_list<std::pair<double, double>> l) {
    V2<T> v;
    for (auto const& p : l) v.emplace_back(static_cast<T>(p.first), static_cast<T>(p.second));
    return v;
}

template <class P>
Eigen::Vector3d vec(P const& p) {
    return Eigen::Vector3d(p.x, p.y, p.z);
}
// |sin| of the angle between two directions (0 when parallel or antiparallel).
inline double sinAngle3(Eigen::Vector3d const& a, Eigen::Vector3d const& b) {
    return a.cross(b).norm() / (a.norm() * b.norm());
}

// w = max(w, x), where a NaN x (a failed fit) sticks.
inline void worst(double& w, double x) {
    if (!std::isnan(w) && !(x <= w)) w = x;
}
// Records the measured figures as test properties in scientific notation (see
// docs/accuracy.md).
inline void record(std::initializer_list<std::pair<const char*, double>> l) {
    char buf[32];
    for (auto const& p : l) {
        std::snprintf(buf, sizeof buf, "%.3g", p.second);
        ::testing::Test::RecordProperty(p.first, buf);
    }
}

}  // namespace approx_test

#endif
