// A short tour of the library: points and directions, tolerances, matrices and
// the library's exceptions.
#include <math/all.h>

#include <iostream>

int main() {
    using namespace math;

    Cpoint2<double> a(1, 2), b(4, 6);
    Cdirec2<double> d(b - a);  // normalised: (0.6, 0.8)
    std::cout << "direction a->b: (" << d.x << ", " << d.y << "), length |b - a| = " << (b - a).length() << "\n";
    std::cout << "perpendicular: (" << d.perp().x << ", " << d.perp().y << ")\n";

    Cmatrix<double> m(2, 3, 1.0);
    m(1, 2) = 5;
    Cmatrix<double> p = m * m.transp();
    std::cout << "M * M^T = [" << p(0, 0) << " " << p(0, 1) << "; " << p(1, 0) << " " << p(1, 1) << "]\n";

    try {
        throw CthrowMath(CthrowMath::ERR_PRIMEXT_AOI_POINTINDEX, "") << "7" << "0" << "4";
    } catch (CthrowBase const& e) {
        std::cout << "exception: " << messageUtf8(e) << "\n";
    }
    return 0;
}
