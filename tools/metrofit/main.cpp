// metrofit: fits a line, circle, sphere or plane to a file of measured points.
// See app.h for the exit codes and `metrofit --help` for the options.
#include "app.h"

#include <exception>
#include <iostream>
#include <new>

int main(int argc, char** argv) {
    try {
        return metrofit::run(argc, argv, std::cin, std::cout, std::cerr);
    } catch (std::bad_alloc const&) {
        std::cerr << "metrofit: error: out of memory\n";
    } catch (std::exception const& e) {
        std::cerr << "metrofit: error: " << metrofit::oneLine(e.what()) << "\n";
    } catch (...) {
        std::cerr << "metrofit: error: unexpected failure\n";
    }
    return metrofit::kExitData;
}
