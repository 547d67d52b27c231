// Cpolygon2<T>: a closed planar polygon (float, double) with a cached
// classification that makes the point-in-polygon test cheap: an axis-parallel
// rectangle is tested by its corners, a convex polygon by binary search in a
// table of vertex angles around an inner point (O(log n)), anything else by
// the winding number (O(n)).
//
// Usage:
//   Cpolygon2<double> poly(std::vector<Cpoint2<double>>{{0, 0}, {4, 0}, {4, 3}, {1, 5}});
//   poly.preprocess();                       // TYPE_CONVEX, angle table built
//   bool in = poly.pointIsIn({2.0, 2.0});    // true
//   Cpolygon2<double> hull = Cpolygon2<double>::convexPoly(cloud, false);
#ifndef MATH_POLYGON_H
#define MATH_POLYGON_H

#include <math/export.h>
#include <math/point.h>
#include <math/primitives2.h>

#include <list>
#include <cstdint>
#include <utility>
#include <vector>

namespace math {

// A closed polygon: vertices in order, the last joined to the first.  The type
// is a cache: every change of the vertices resets it to TYPE_UNKNOWN and only
// preprocess() (or set(Crect2)) classifies.  The rectangle cache is valid only
// while the type is TYPE_RECT, the angle table only while it is TYPE_CONVEX.
template <class T>
class METROMATH_API Cpolygon2 {
public:
    // Numeric values are part of the interface (5 is not used).
    enum enType {
        TYPE_UNKNOWN = 0,      // not classified since the last change
        TYPE_INVALID = 1,      // fewer than 3 vertices
        TYPE_DEGENERATED = 2,  // all vertices on one straight line
        TYPE_RECT = 3,         // axis-parallel rectangle (rectangle cache)
        TYPE_CONVEX = 4,       // convex (angle table and reference)
        TYPE_CONCAVE = 6,      // simple, not convex
        TYPE_COMPLEX = 7       // not simple; see isSimple()
    };

    using Tpoint = Cpoint2<T>;
    using Tangle = std::pair<T, Cpoint2<T>>;

    Cpolygon2();
    explicit Cpolygon2(std::vector<Cpoint2<T>> const& pts);
    explicit Cpolygon2(std::list<Cpoint2<T>> const& pts);
    // As set(Crect2): four vertices, type TYPE_RECT.
    explicit Cpolygon2(Crect2<T> const& r);
    Cpolygon2(Cpolygon2 const&) = default;
    Cpolygon2& operator=(Cpolygon2 const&) = default;
    Cpolygon2& operator=(std::vector<Cpoint2<T>> const& pts);
    ~Cpolygon2() = default;

    // Replaces the vertices; type TYPE_UNKNOWN.
    void set(std::vector<Cpoint2<T>> const& pts);
    // Vertices (left, top), (left, bottom), (right, bottom), (right, top); the
    // rectangle is cached and the type is TYPE_RECT without preprocess().
    void set(Crect2<T> const& r);

    // Editing; each successful change sets TYPE_UNKNOWN.
    void add(T x, T y);
    void add(Cpoint2<T> const& p);
    void add(std::vector<Cpoint2<T>> const& pts);
    // Removes vertex i; false (and nothing changed) for i >= size().
    bool remove(unsigned int i);
    // Removes the first vertex exactly equal to p; false if there is none.
    bool remove(Cpoint2<T> const& p);
    // No vertices, type TYPE_INVALID.
    void clear();

    unsigned int size() const { return static_cast<unsigned int>(m_points.size()); }
    std::vector<Cpoint2<T>> const& points() const { return m_points; }
    enType type() const { return m_type; }
    bool isPreprocessed() const { return m_type != TYPE_UNKNOWN; }
    // At least 3 vertices (nothing else is checked).
    bool isValid() const { return m_points.size() >= 3; }

    // Signed area by the shoelace formula, closing edge included: positive for
    // counter-clockwise vertices in a y-up frame; 0 for fewer than 3 vertices.
    T area() const;
    // Arithmetic mean of the vertices (not the area centroid); NaN when empty.
    Cpoint2<T> center() const;
    // TYPE_INVALID: the default (NaN) rectangle; TYPE_RECT: the cache;
    // otherwise the static form over the vertices.
    Crect2<T> boundingRect() const;
    // (min x, min y, max x, max y), started from the largest finite T and its
    // negative, so an empty vector gives left = top = max, right = bottom = -max.
    static Crect2<T> boundingRect(std::vector<Cpoint2<T>> const& pts);

    // Point in polygon by the cached type: TYPE_RECT border included;
    // TYPE_CONVEX by the angle table, border included; TYPE_UNKNOWN,
    // TYPE_CONCAVE and TYPE_COMPLEX by the non-zero winding number (a point
    // exactly on an edge gets no contribution from that edge; preprocessed
    // polygons of 32 or more vertices use a slab index, O(log n) plus the
    // edges crossing the point's height); TYPE_INVALID,
    // TYPE_DEGENERATED and fewer than 3 vertices: false.  Never classifies.
    // A point with a NaN coordinate is in no polygon; an infinite one is in
    // no polygon of finite vertices (by every path).
    bool pointIsIn(Cpoint2<T> const& p) const;

    // Same vertex count and every coordinate equal under the relative
    // comparison (2^-15 float, 2^-35 double), in stored order.
    bool operator==(Cpolygon2 const& o) const;
    bool operator!=(Cpolygon2 const& o) const { return !(*this == o); }

    // Classifies (see enType):  < 3 vertices -> INVALID; all collinear ->
    // DEGENERATED; then optimize(true); not isSimple() -> COMPLEX; testRect()
    // -> RECT; not isConvex() -> CONCAVE; else CONVEX with the angle table
    // built around the mean of the first three vertices.  Because isSimple()
    // counts neighbouring edges as meeting only where the counter-clockwise
    // polygon turns left, a polygon with a reflex vertex ends as TYPE_COMPLEX.
    void preprocess();

    // A new polygon (TYPE_UNKNOWN) with n vertices, removing one at a time the
    // vertex whose triangle with its two neighbours has the smallest area (the
    // earliest in order on ties).  Fewer than 3 vertices: an empty polygon;
    // n <= 2 or n >= size(): a copy.
    Cpolygon2 simplifiedTo(unsigned int n) const;

    // convexPoly(points(), true).
    Cpolygon2 convexPoly() const;

    // The convex hull of pts as a polygon (TYPE_UNKNOWN), counter-clockwise in a
    // y-up frame, starting at the vertex with the smallest x (then smallest y),
    // by Andrew's monotone chain in O(n log n).  keepEdgePoints = false gives
    // only the strict corners; true also keeps the points that lie exactly on a
    // hull edge, in order along it.  Exact duplicates are reported once, points
    // with a NaN or infinite coordinate are ignored (as by CcvxHull2D).  Degenerate sets: no point gives an
    // empty polygon, one distinct point a one-vertex polygon; collinear points
    // give the two end points (keepEdgePoints = false) or all distinct points in
    // order along the line (true).  The orientation tests are exact (adaptive
    // precision, no tolerance) for coordinates of magnitude 2^-400 .. 2^500.
    static Cpolygon2 convexPoly(std::vector<Cpoint2<T>> const& pts, bool keepEdgePoints);

    // A simple (non-self-intersecting) polygon through all distinct points of
    // pts, counter-clockwise in a y-up frame: from the lexicographically
    // smallest point L (min x, then min y) through the points on or below the
    // line from L to the largest point R in increasing (x, y) order, then R and
    // the points strictly above that line in decreasing order.  Both chains are
    // monotone in (x, y) and meet only at L and R, so no two edges cross.
    // Duplicates appear once, NaN points are ignored; collinear input gives a
    // polygon of zero area (TYPE_DEGENERATED after preprocess()).  The side of
    // the line is decided exactly.
    static Cpolygon2 contourPoly(std::vector<Cpoint2<T>> const& pts);

    // The four corners of the minimum-area rectangle enclosing the vertices
    // (any orientation), counter-clockwise in a y-up frame, found by rotating
    // calipers over the convex hull in O(n log n): one side of the optimum lies
    // on a hull edge, so each hull edge is tried and the three other extreme
    // points advance monotonically.  The first corner is the one on the
    // supporting line of that edge with the smaller projection on it.  No
    // vertex: an empty vector; one distinct point: four times that point;
    // collinear vertices: the degenerate rectangle a, b, b, a over the end points.
    std::vector<Cpoint2<T>> minimumEnclosingRect() const;

protected:
    // Fewer than 3 vertices, or every cyclic triple (a, b, c) has the cross
    // product (b - a) x (c - a) exactly 0.
    bool isDegenerated() const;
    // Every edge meets exactly two other edges under the segment test with the
    // orientation function turn() (quadratic).
    bool isSimple() const;
    // Sign of every turn (p_i - p_(i-1)) x (p_(i+1) - p_i) for i = 1 .. n-2
    // equals that of the first; the two turns across the end of the list are
    // not examined (preprocess() runs optimize() and isSimple() first).
    bool isConvex() const;
    // Exactly 4 vertices that match the four corners of the bounding rectangle
    // (relative comparison, any order).  Stores that rectangle in the cache.
    bool testRect();
    // Starts the list at the vertex with the smallest (x, y), drops every vertex
    // collinear with its two neighbours in the original ring (so runs of
    // collinear and repeated vertices go entirely), and, if makePositive and
    // the area is negative, reverses the list.
    void optimize(bool makePositive);
    // Pseudo-angle of q - p in (0, 360]: falls monotonically with the
    // counter-clockwise angle; 360 for +x (and q == p), 270 for +y, 180 for -x,
    // 90 for -y.  Cheaper than atan2 and used only for ordering.
    static T theta(Cpoint2<T> const& p, Cpoint2<T> const& q);
    // 1 for positive, -1 for negative, 0 otherwise (also NaN).
    static int _sign(T v);
    // Orientation used by isSimple(): 1 / -1 for one side of p0->p1 and the
    // other, and for collinear p2: -1 behind p0, 0 at or beyond p1, 1 between.
    static int turn(Cpoint2<T> const& p0, Cpoint2<T> const& p1, Cpoint2<T> const& p2);

private:
    bool pointIsInWinding(Cpoint2<T> const& p) const;
    bool pointIsInConvex(Cpoint2<T> const& p) const;
    // Index of the winding-number test, built by preprocess() for concave and
    // complex polygons of at least 32 finite vertices: the plane is cut into
    // horizontal slabs [y_k, y_k+1) between consecutive distinct vertex heights,
    // and each slab lists the edges that span it, which are exactly the edges
    // the winding rule counts for a point of that height.  A query finds its
    // slab by binary search and runs the winding test over those edges only,
    // with the same arithmetic: the same answer as the full test, on edges and
    // vertices too.  Left empty (full test) when the slabs would hold more than
    // 256 edge entries per vertex.
    void buildSlabs();
    bool pointIsInSlabs(Cpoint2<T> const& p) const;

    std::vector<Cpoint2<T>> m_points;
    enType m_type;
    Crect2<T> m_rect;               // valid while m_type == TYPE_RECT
    std::vector<Tangle> m_angles;   // (theta(m_ref, v), v) ascending; valid while TYPE_CONVEX
    Cpoint2<T> m_ref;               // reference point of the angle table
    std::vector<T> m_slabY;                 // slab heights, ascending; empty: no index
    std::vector<std::uint32_t> m_slabStart; // slab k: edges [m_slabStart[k], m_slabStart[k + 1])
    std::vector<T> m_slabEdges;             // edge j from (ax, ay) to (bx, by): four runs of E values
};

extern template class Cpolygon2<float>;
extern template class Cpolygon2<double>;

}  // namespace math

#endif
