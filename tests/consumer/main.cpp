// Uses a matrix, a point, the matrix text form and the library's exception
// through the installed headers and libraries only.
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
    return 0;
}
