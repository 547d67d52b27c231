// Caoi<T>: an area of interest (float, double), an ordered list of polygon
// regions that together select a part of the plane or of an image.
//
// Each region either includes or excludes: a point lies in the area when it lies
// in at least one valid including region and in no valid excluding region (an
// excluding region cuts holes, whatever its position in the list).  A region is
// valid when its polygon has at least three vertices, finite coordinates and
// does not degenerate to a line; invalid regions are kept (and can be edited
// into valid ones) but take no part in any test.  The area itself is valid when
// it holds at least one valid including region; every test of an invalid area
// throws CthrowMath::ERR_PRIMEXT_AOI_INVALID.
//
// Image pixels are points with integer coordinates: pixel (column x, row y) is
// the point (x, y), y growing downward as in Crect2.  A pixel belongs to the
// area when that point does (polygon borders follow Cpolygon2::pointIsIn; a
// NaN or infinite point is in no area).
//
// Usage:
//   Caoi<double> aoi(Crect2<double>(10, 10, 100, 50));            // include a rectangle
//   aoi.add(Cpolygon2<double>(holeVertices), Caoi<double>::MODE_EXCLUDE);
//   Cimage m = aoi.mask(image);                                    // 255 inside, 0 outside
//   std::uint64_t n = aoi.count(image);
#ifndef MATH_AOI_H
#define MATH_AOI_H

#include <math/errors.h>
#include <math/export.h>
#include <math/point.h>
#include <math/polygon.h>
#include <math/primitives2.h>

#include <core/image.h>

#include <cstdint>
#include <vector>

namespace math {

// Regions are held twice: as given (what polygon() and point() return, vertex
// indices as the caller built them) and as a classified working copy for the
// tests.  Invariant: m_work[i] is m_regions[i] after preprocess().
template <class T>
class METROMATH_API Caoi {
public:
    enum enMode { MODE_INCLUDE = 0, MODE_EXCLUDE = 1 };

    // The empty (invalid) area.
    Caoi() = default;
    // One including region.
    explicit Caoi(Cpolygon2<T> const& region);
    explicit Caoi(Crect2<T> const& region);

    // Appends a region and returns its index.
    unsigned int add(Cpolygon2<T> const& region, enMode mode = MODE_INCLUDE);
    unsigned int add(Crect2<T> const& region, enMode mode = MODE_INCLUDE);
    // Removes region i; the following regions move up by one.
    void remove(unsigned int i);
    void clear();

    // Number of regions (valid or not).
    unsigned int polygonCount() const { return static_cast<unsigned int>(m_regions.size()); }
    // Region i as it was added (or edited).
    Cpolygon2<T> const& polygon(unsigned int i) const;
    enMode mode(unsigned int i) const;
    void setMode(unsigned int i, enMode mode);
    bool regionIsValid(unsigned int i) const;
    // Vertex count of region i and its vertex j.
    unsigned int pointCount(unsigned int i) const;
    Cpoint2<T> const& point(unsigned int i, unsigned int j) const;
    // Replaces vertex j of region i and reclassifies the region.
    void setPoint(unsigned int i, unsigned int j, Cpoint2<T> const& p);
    // Replaces region i.
    void setPolygon(unsigned int i, Cpolygon2<T> const& region);

    // At least one valid including region.
    bool isValid() const;

    // The tests; each throws ERR_PRIMEXT_AOI_INVALID on an invalid area.
    bool pointIsIn(Cpoint2<T> const& p) const;
    // The bounding rectangle of the valid including regions (excluding regions
    // only cut away, they never widen the area).
    Crect2<T> boundingRect() const;
    // Number of pixels of the image (its size only is used) inside the area.
    std::uint64_t count(Cimage const& image) const;
    // A gray image of the same size: 255 for the pixels inside, 0 elsewhere.
    Cimage mask(Cimage const& image) const;

private:
    struct Region {
        Cpolygon2<T> work;  // classified copy
        enMode mode;
        bool valid;
    };
    void checkPolyIndex(unsigned int i) const;
    void checkValid() const;
    // pointIsIn without the validity check.
    bool inside(Cpoint2<T> const& p) const;
    static Region classify(Cpolygon2<T> const& poly, enMode mode);
    // The pixel range [x0, x1] x [y0, y1] covered by the bounding rectangle
    // and the image; false if it is empty.
    bool pixelRange(Cimage const& image, long long& x0, long long& x1, long long& y0, long long& y1) const;

    std::vector<Cpolygon2<T>> m_regions;  // as given
    std::vector<Region> m_work;           // same indices
};

extern template class Caoi<float>;
extern template class Caoi<double>;

}  // namespace math

#endif
