// A short tour of the library, one block per family, as shown in README.md.
#include <math/all.h>

#include <cstdio>
#include <iostream>
#include <sstream>
#include <vector>

using namespace math;

int main() {
    // Points, directions, tolerances
    Cpoint2<double> a(1, 2), b(4, 6);
    Cdirec2<double> d(b - a);
    bool same = geometric<double>::equal(1.0, 1.0 + 1e-7);
    double h = cNRB_math<double>::pythag(3e200, 4e200);
    std::cout << "direction (" << d.x << ", " << d.y << "), equal " << same << ", pythag " << h << "\n";

    // Matrices and their stream formats
    Cmatrix<double> m(2, 3, 1.0);
    m(1, 2) = 5;
    Cmatrix<double> p = m * m.transp();
    std::ostringstream out;
    CioStreamMatrix<double> w(out);
    w << m;
    std::istringstream in(out.str());
    CioStreamMatrix<double> r(in);
    Cmatrix<double> back;
    r >> back;
    std::cout << "M * M^T = [" << p(0, 0) << " " << p(0, 1) << "; " << p(1, 0) << " " << p(1, 1) << "]\n"
              << "text form:\n" << out.str() << "read back " << back.m() << " x " << back.n() << "\n";

    // Solvers, rotations and eigenvalues
    Cmatrix<double> A(3, 3);
    const double av[9] = {4, 1, 2, 1, 5, 3, 2, 3, 6};
    for (unsigned k = 0; k < 9; ++k) A.getBase()[k] = av[k];
    Csolver_luDecomp<double> lu(A);
    Cmatrix<double> x = lu.solve(std::vector<double>{1, 2, 3});
    Csolver_svd<double> svd(A);
    Cmatrix<double> y = svd.solve(std::vector<double>{1, 2, 3});
    Cmatrix<double> C = A * A.transp(), V;
    CmatrixCalc<double>::getEigenvalue(C, V);
    Cmatrix<double> R;
    CmatrixCalc<double>::ArcToRotXYZ(0.1, 0.2, 0.3, R);
    std::cout << "LU x = (" << x(0, 0) << ", " << x(1, 0) << ", " << x(2, 0) << "), det " << lu.getDet()
              << ", SVD x0 " << y(0, 0) << ", cond " << svd.getCond() << ", largest eigenvalue " << C(0, 0) << "\n";

    // Planar geometry
    Cline2<double> l(Cpoint2<double>(0, 0), Cpoint2<double>(1, 1));
    Cpoint2<double> s;
    bool hit = geometric<double>::intersect(l, Cline2<double>(Cpoint2<double>(0, 2), Cpoint2<double>(2, 0)), s);
    Ccircle2<double> c(Cpoint2<double>(1, 0), Cpoint2<double>(0, 1), Cpoint2<double>(-1, 0));
    Cpolygon2<double> poly(std::vector<Cpoint2<double>>{{0, 0}, {4, 0}, {4, 3}, {1, 5}});
    poly.preprocess();
    bool inside = poly.pointIsIn({2.0, 2.0});
    CcvxHull2D<double> hull(std::vector<Cvector2<double>>{{0, 0}, {2, 0}, {1, 1}, {2, 2}, {0, 2}});
    Caoi<double> aoi(Crect2<double>(10, 10, 100, 50));
    aoi.add(Cpolygon2<double>(Crect2<double>(40, 20, 10, 10)), Caoi<double>::MODE_EXCLUDE);
    Cimage mask = aoi.mask(Cimage(640, 480));
    std::cout << "lines meet " << hit << " at (" << s.x << ", " << s.y << "), circle r " << c.radius()
              << ", point in polygon " << inside << ", mask " << mask.width() << " x " << mask.height() << "\n";

    // Spatial geometry
    Cplane3<double> e(Cpoint3<double>(0, 0, 0), Cpoint3<double>(1, 0, 0), Cpoint3<double>(0, 1, 0));
    Cline3<double> l3(Cpoint3<double>(0, 0, 5), Cdirec3<double>(0, 0, -1, true));
    Cpoint3<double> q;
    bool met = geometric<double>::intersect(e, l3, q);
    double dist = geometric<double>::distance(e, Cpoint3<double>(1, 2, 3));
    Ccircle3<double> k(e, Cpoint3<double>(1, 0, 0), Cpoint3<double>(0, 1, 0), Cpoint3<double>(-1, 0, 0));
    std::cout << "plane and line meet " << met << " at z = " << q.z << ", distance " << dist << ", circle r "
              << k.radius() << "\n";

    // Fits
    std::vector<Cpoint2<double>> edge;
    for (int i = 0; i < 36; ++i) {
        const double t = i * 0.1745329251994330;
        edge.emplace_back(10 + 3 * std::cos(t) + 0.001 * ((i % 3) - 1), 20 + 3 * std::sin(t));
    }
    Ccircle2<double> circle;
    approximate<double>::fitCircleLsq(edge, circle);
    double sd = approximate<double>::StdAbwCircle2(edge, circle);
    std::vector<Cpoint3<double>> cloud;
    for (int i = 0; i < 10; ++i)
        for (int j = 0; j < 10; ++j) cloud.emplace_back(i, j, 0.5 * i - 0.25 * j + 7 + 0.001 * ((i + j) % 2));
    Cplane3<double> plane;
    approximate<double>::fitPlaneGeom(cloud, plane);
    std::cout << "circle fit: centre (" << circle.center().x << ", " << circle.center().y << ") r "
              << circle.radius() << " sd " << sd << "; plane normal (" << plane.normal().x << ", "
              << plane.normal().y << ", " << plane.normal().z << ")\n";

    // Geometric fits (orthogonal distances), with the standard uncertainties
    CqCircleGeomStdAbw<double> rec;
    approximate<double>::fitCircleGeom(edge, circle, rec);
    std::cout << "geometric circle: r " << circle.radius() << " +- " << rec.uRadius << ", centre x "
              << circle.center().x << " +- " << rec.uCenterX << " (" << rec.iterations << " iterations)\n";
    std::vector<Cpoint3<double>> ball, shaft;
    for (int i = 0; i < 8; ++i)
        for (int j = 0; j < 12; ++j) {
            const double th = 0.15 * (i + 1), ph = 0.5236 * j;  // a cap, and a 260-degree arc on 8 tracks
            ball.emplace_back(5 + 2 * std::sin(th) * std::cos(ph), 2 * std::sin(th) * std::sin(ph), 1 + 2 * std::cos(th));
            shaft.emplace_back(4 * std::cos(0.4 * j), 4 * std::sin(0.4 * j), 3.0 * i);
        }
    Csphere3<double> sphere;
    approximate<double>::fitSphereGeom(ball, sphere);
    Ccylinder3<double> cyl;
    approximate<double>::fitCylinderGeom(shaft, cyl);
    const Cdirec3<double>& axis = cyl.axis().direction();
    std::cout << "sphere r " << sphere.radius() << "; cylinder r " << cyl.radius() << " along (" << axis.x << ", "
              << axis.y << ", " << axis.z << ")\n";

    // Errors
    try {
        throw CthrowMath(CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX, "") << "7" << "0" << "4";
    } catch (CthrowBase const& ex) {
        std::cout << "exception: " << messageUtf8(ex) << "\n";
    }
    return 0;
}
