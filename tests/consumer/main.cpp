// Uses a matrix, a point, the matrix text form, the library's exception and a
// spline curve on a basis shared through Loki::SmartPtr, through the installed
// headers and libraries only.
#include <math/all.h>
#include <math/matrix_io.h>

#include <iostream>
#include <sstream>

int main() {
    using namespace math;

    Cmatrix<double> a(2, 2, 1.0);
    a(1, 1) = 3;
    Cmatrix<double> p = a * a.transp();
    std::cout << "product " << p(0, 0) << " " << p(0, 1) << " " << p(1, 0) << " " << p(1, 1) << "\n";

    std::ostringstream os;
    CioStreamMatrix<double> io(os);
    io << p;
    std::cout << "text " << os.str().size() << "\n";

    Cpoint2<double> q(3, 4);
    std::cout << "length " << q.length() << "\n";

    try {
        throw CthrowMath(CthrowMath::ERR_MATRIX_DIMS, "") << "2" << "5";
    } catch (CthrowMath const& e) {
        std::cout << "caught " << e.id2tab(e.id()).key << " " << e.arguments().size() << "\n";
    }

    // The handle's reference count lives in Loki's small-object pool: copies
    // made here and in the library count in the same pool.
    TsplineBasisPtr basis(new CsplineBasis(3, 4));
    CbaseVecN<Cpoint3<double>> ctrl{Cpoint3<double>(0, 0, 0), Cpoint3<double>(1, 2, 0), Cpoint3<double>(3, 2, 0),
                                    Cpoint3<double>(4, 0, 0)};
    {
        Cspline curve(basis, ctrl);
        Cspline copy(curve);
        Cpoint3<double> p = copy.point(1.0);
        std::cout << "spline " << p.x << " " << p.y << " " << copy.tMax() << "\n";
    }
    try {
        Cspline(1, ctrl);
    } catch (CthrowSpline const& e) {
        std::cout << "caught " << e.id2tab(e.id()).key << "\n";
    }
    return 0;
}
