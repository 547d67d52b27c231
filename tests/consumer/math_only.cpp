// Uses only math types through the installed headers and libraries, and no
// matrix (whose storage would reference the core library's allocator): the
// program then has no reference of its own to the core library, which is
// found only through libmetromath's run path.  Run without LD_LIBRARY_PATH.
#include <math/all.h>

#include <iostream>
#include <vector>

int main() {
    using namespace math;

    Ccircle2<double> c;
    approximate<double>::fitCircleLsq({{5, 1}, {0, 6}, {-5, 1}, {0, -4}, {3, 5}}, c);
    std::cout << "radius " << c.radius() << (c.isValid() ? " valid" : " invalid") << "\n";

    Cpoint2<double> q(3, 4);
    std::cout << "length " << q.length() << "\n";

    try {
        Caoi<double> aoi;
        aoi.polygon(3);
    } catch (math::CthrowMath const& e) {
        std::cout << "caught " << e.id() << "\n";
    }
    return 0;
}
