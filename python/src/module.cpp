// The Python module metromath._metromath: the library's fits, primitives,
// queries, solvers and moment sums on numpy arrays.
//
// Points arrive as arrays of shape (N, 2) or (N, 3).  float64 and float32
// arrays are read where they lie (any strides); other numeric dtypes are
// converted to float64 once.  float32 points run the library's float
// instantiation; results are returned as the double primitives below.
// Every call into the library releases the GIL.
#include <math/all.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace py = pybind11;
using namespace math;

namespace {

// ---------------------------------------------------------------------------
// Errors
// ---------------------------------------------------------------------------

PyObject* g_mathError = nullptr;

void raiseMathError(CthrowBase const& e) {
    CbaseTransl::TtabTransl const& row = e.id2tab(e.id());
    py::object err = py::reinterpret_borrow<py::object>(g_mathError);
    const std::string msg = messageUtf8(e);
    py::object inst = err(py::str(msg));
    inst.attr("key") = py::str(toUtf8(row.key ? row.key : ""));
    inst.attr("id") = e.id();
    inst.attr("message") = py::str(msg);
    PyErr_SetObject(g_mathError, inst.ptr());
}

// ---------------------------------------------------------------------------
// Point arrays
// ---------------------------------------------------------------------------

// A checked (N, D) array of float32 or float64, kept alive while read.
struct PointArray {
    py::array arr;
    bool single = false;
    std::size_t n = 0;
    std::ptrdiff_t rs = 0, cs = 0;  // strides in elements

    template <class T>
    T const* data() const {
        return static_cast<T const*>(arr.data());
    }
};

PointArray points(py::handle obj, int D, char const* name = "points") {
    py::module_ np = py::module_::import("numpy");
    py::array a;
    if (py::isinstance<py::array>(obj)) {
        a = py::reinterpret_borrow<py::array>(obj);
    } else {
        try {
            a = np.attr("asarray")(obj, "float64");
        } catch (py::error_already_set&) {
            throw py::type_error(std::string(name) + ": expected a numeric array of shape (N, " +
                                 std::to_string(D) + ")");
        }
    }
    const char kind = a.dtype().kind();
    if (kind != 'f' && kind != 'i' && kind != 'u' && kind != 'b')
        throw py::type_error(std::string(name) + ": expected a numeric array of shape (N, " + std::to_string(D) +
                             "), got dtype " + std::string(py::str(a.dtype())));
    if (a.ndim() != 2 || a.shape(1) != D) {
        std::ostringstream s;
        s << name << ": expected an array of shape (N, " << D << "), got shape (";
        for (py::ssize_t k = 0; k < a.ndim(); ++k) s << (k ? ", " : "") << a.shape(k);
        s << (a.ndim() == 1 ? ",)" : ")");
        throw py::value_error(s.str());
    }
    const bool f64 = a.dtype().is(py::dtype::of<double>());
    const bool f32 = a.dtype().is(py::dtype::of<float>());
    if (!f64 && !f32) a = np.attr("asarray")(a, "float64");
    PointArray p;
    p.arr = a;
    p.single = f32;
    p.n = static_cast<std::size_t>(a.shape(0));
    const py::ssize_t item = a.itemsize();
    if (a.strides(0) % item != 0 || a.strides(1) % item != 0) {
        p.arr = np.attr("ascontiguousarray")(a);
    }
    p.rs = p.arr.strides(0) / item;
    p.cs = p.arr.strides(1) / item;
    return p;
}

template <class T>
std::vector<Cpoint2<T>> vec2(PointArray const& p) {
    std::vector<Cpoint2<T>> v(p.n);
    T const* d = p.data<T>();
    for (std::size_t i = 0; i < p.n; ++i) {
        T const* r = d + static_cast<std::ptrdiff_t>(i) * p.rs;
        v[i] = Cpoint2<T>(r[0], r[p.cs]);
    }
    return v;
}
template <class T>
std::vector<Cpoint3<T>> vec3(PointArray const& p) {
    std::vector<Cpoint3<T>> v(p.n);
    T const* d = p.data<T>();
    for (std::size_t i = 0; i < p.n; ++i) {
        T const* r = d + static_cast<std::ptrdiff_t>(i) * p.rs;
        v[i] = Cpoint3<T>(r[0], r[p.cs], r[2 * p.cs]);
    }
    return v;
}

// The points of an array as the fits and queries read them: an aligned
// C-contiguous (N, D) array of T is already an array of N points and is read
// where it lies; any other layout is gathered once into `own`.
template <class P>
struct PointsIn {
    std::vector<P> own;
    CpointSpan<P> span;

    PointsIn() = default;
    PointsIn(PointsIn&&) = default;  // a moved vector keeps its buffer, so span stays valid
    PointsIn(PointsIn const&) = delete;
    PointsIn& operator=(PointsIn const&) = delete;
    PointsIn& operator=(PointsIn&&) = delete;

    operator CpointSpan<P>() const { return span; }
    std::size_t size() const { return span.size(); }
    P const& operator[](std::size_t i) const { return span[i]; }
};

template <class T, int D>
bool inPlace(PointArray const& p) {
    const bool aligned = reinterpret_cast<std::uintptr_t>(p.arr.data()) % alignof(T) == 0;
    return aligned && p.cs == 1 && (p.rs == D || p.n <= 1);
}
template <class T>
PointsIn<Cpoint2<T>> in2(PointArray const& p) {
    PointsIn<Cpoint2<T>> r;
    if (inPlace<T, 2>(p)) {
        r.span = CpointSpan<Cpoint2<T>>(reinterpret_cast<Cpoint2<T> const*>(p.data<T>()), p.n);
    } else {
        r.own = vec2<T>(p);
        r.span = r.own;
    }
    return r;
}
template <class T>
PointsIn<Cpoint3<T>> in3(PointArray const& p) {
    PointsIn<Cpoint3<T>> r;
    if (inPlace<T, 3>(p)) {
        r.span = CpointSpan<Cpoint3<T>>(reinterpret_cast<Cpoint3<T> const*>(p.data<T>()), p.n);
    } else {
        r.own = vec3<T>(p);
        r.span = r.own;
    }
    return r;
}

py::array_t<double> arr2(Cpoint2<double> const& p) { return py::array_t<double>(2, &p.x); }
py::array_t<double> arr3(double x, double y, double z) {
    const double v[3] = {x, y, z};
    return py::array_t<double>(3, v);
}

Cpoint2<double> pt2(py::handle o) {
    auto a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(o);
    if (!a || a.size() != 2) throw py::value_error("expected a point of shape (2,)");
    return Cpoint2<double>(a.data()[0], a.data()[1]);
}
Cpoint3<double> pt3(py::handle o) {
    auto a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(o);
    if (!a || a.size() != 3) throw py::value_error("expected a point of shape (3,)");
    return Cpoint3<double>(a.data()[0], a.data()[1], a.data()[2]);
}

// ---------------------------------------------------------------------------
// float results as double primitives
// ---------------------------------------------------------------------------

template <class T> Cpoint2<double> D(Cpoint2<T> const& p) { return {double(p.x), double(p.y)}; }
template <class T> Cpoint3<double> D(Cpoint3<T> const& p) { return {double(p.x), double(p.y), double(p.z)}; }
template <class T> Cline2<double> D(Cline2<T> const& l) {
    return Cline2<double>(D(Cpoint2<T>(l.point())), Cdirec2<double>(l.direction().x, l.direction().y, true));
}
template <class T> Ccircle2<double> D(Ccircle2<T> const& c) { return Ccircle2<double>(D(c.center()), c.radius()); }
template <class T> Cline3<double> D(Cline3<T> const& l) {
    return Cline3<double>(D(Cpoint3<T>(l.point())),
                          Cdirec3<double>(l.direction().x, l.direction().y, l.direction().z, true));
}
template <class T> Cplane3<double> D(Cplane3<T> const& e) {
    Cplane3<double> r;
    r.set(e.a(), e.b(), e.c(), e.d());
    return r;
}
template <class T> Csphere3<double> D(Csphere3<T> const& s) { return Csphere3<double>(D(s.center()), s.radius()); }
template <class T> Ccircle3<double> D(Ccircle3<T> const& c) {
    return Ccircle3<double>(D(c.plane()), D(c.center()), c.radius());
}
template <class T> Ccylinder3<double> D(Ccylinder3<T> const& z) { return Ccylinder3<double>(D(z.axis()), z.radius()); }
template <class T> Ccylinder3<T> fromD(Ccylinder3<double> const& z) {
    Cline3<double> const& a = z.axis();
    return Ccylinder3<T>(Cline3<T>(Cpoint3<T>(T(a.point().x), T(a.point().y), T(a.point().z)),
                                   Cdirec3<T>(T(a.direction().x), T(a.direction().y), T(a.direction().z), true)),
                         T(z.radius()));
}

// Records of the geometric fits as dicts: the common fields, then u<Param>.
template <class R>
py::dict recordBase(R const& r) {
    py::dict d;
    d["iterations"] = r.iterations;
    d["converged"] = r.converged;
    d["sum_sq_dist"] = double(r.sumSqDist);
    d["std_abw"] = double(r.stdAbw);
    return d;
}
template <class T> py::dict record(CqCircleGeomStdAbw<T> const& r) {
    py::dict d = recordBase(r);
    d["u_center"] = py::make_tuple(double(r.uCenterX), double(r.uCenterY));
    d["u_radius"] = double(r.uRadius);
    return d;
}
template <class T> py::dict record(CqCircle3GeomStdAbw<T> const& r) {
    py::dict d = recordBase(r);
    d["u_center"] = py::make_tuple(double(r.uCenterX), double(r.uCenterY), double(r.uCenterZ));
    d["u_normal"] = py::make_tuple(double(r.uNormalX), double(r.uNormalY), double(r.uNormalZ));
    d["u_radius"] = double(r.uRadius);
    return d;
}
template <class T> py::dict record(CqSphereGeomStdAbw<T> const& r) {
    py::dict d = recordBase(r);
    d["u_center"] = py::make_tuple(double(r.uCenterX), double(r.uCenterY), double(r.uCenterZ));
    d["u_radius"] = double(r.uRadius);
    return d;
}
template <class T> py::dict record(CqCylinderGeomStdAbw<T> const& r) {
    py::dict d = recordBase(r);
    d["u_point"] = py::make_tuple(double(r.uPointX), double(r.uPointY), double(r.uPointZ));
    d["u_direction"] = py::make_tuple(double(r.uDirX), double(r.uDirY), double(r.uDirZ));
    d["u_radius"] = double(r.uRadius);
    return d;
}

template <class T> Cellipse2<double> D(Cellipse2<T> const& e) {
    return Cellipse2<double>(D(e.center()), e.a(), e.b(), e.angle());
}
template <class T> py::dict record(CqEllipseGeomStdAbw<T> const& r) {
    py::dict d = recordBase(r);
    d["u_center"] = py::make_tuple(double(r.uCenterX), double(r.uCenterY));
    d["u_a"] = double(r.uA);
    d["u_b"] = double(r.uB);
    d["u_angle"] = double(r.uAngle);
    return d;
}

// (N, 2) array of planar points.
py::array_t<double> array2(std::vector<Cpoint2<double>> const& v) {
    py::array_t<double> out({static_cast<py::ssize_t>(v.size()), py::ssize_t(2)});
    auto o = out.mutable_unchecked<2>();
    for (std::size_t i = 0; i < v.size(); ++i) {
        o(i, 0) = v[i].x;
        o(i, 1) = v[i].y;
    }
    return out;
}

// Runs a planar estimator on source and destination points; its nested
// exceptions become ValueError.
template <class Est>
CtransPrm2<double> estimate(Est& est, py::handle src, py::handle dst) {
    PointArray s = points(src, 2, "source"), d = points(dst, 2, "dest");
    auto vs = vec2<double>(s), vd = vec2<double>(d);
    try {
        return nogil([&] {
            est.setAll(vs, vd);
            return est.transform();
        });
    } catch (typename Est::xArgumentMismatch const&) {
        throw py::value_error("source and dest must hold the same number of points");
    } catch (typename Est::xNotInitialized const&) {
        throw py::value_error("source and dest must both be set");
    }
}

py::array_t<double> column(Cmatrix<double> const& x) {
    std::vector<double> v(x.m());
    for (unsigned i = 0; i < x.m(); ++i) v[i] = x(i, 0);
    return py::array_t<double>(v.size(), v.data());
}

template <class T>
CqGeomFitPrm<T> fitParams(py::dict const& kw) {
    CqGeomFitPrm<T> p;
    for (auto item : kw) {
        const std::string k = py::str(item.first);
        if (k == "max_iter") p.maxIter = item.second.cast<std::uint32_t>();
        else if (k == "rel_step_tol") p.relStepTol = T(item.second.cast<double>());
        else if (k == "grad_tol") p.gradTol = T(item.second.cast<double>());
        else if (k == "init_damping") p.initDamping = T(item.second.cast<double>());
        else throw py::type_error("unknown fit parameter '" + k + "' (max_iter, rel_step_tol, grad_tol, init_damping)");
    }
    return p;
}

// One geometric fit for the array's precision: fit(points, primitive, record,
// params) -> (double primitive, record dict).
template <class P2, class Fd, class Ff>
py::object geomFit(PointArray const& p, bool withRecord, py::dict const& kw, Fd fd, Ff ff) {
    py::dict rec;
    P2 prim;
    if (p.single) {
        const CqGeomFitPrm<float> prm = fitParams<float>(kw);
        auto r = nogil([&] { return ff(prm); });
        prim = D(r.first);
        rec = record(r.second);
    } else {
        const CqGeomFitPrm<double> prm = fitParams<double>(kw);
        auto r = nogil([&] { return fd(prm); });
        prim = r.first;
        rec = record(r.second);
    }
    if (!withRecord) return py::cast(prim);
    return py::make_tuple(prim, rec);
}

template <class F>
auto nogil(F f) {
    py::gil_scoped_release release;
    return f();
}

// Runs fit<T>(points) for the array's precision and returns a double primitive.
template <class P, class F2, class F1>
P dispatch(PointArray const& p, F2 fd, F1 ff) {
    if (p.single) return nogil([&] { return D(ff()); });
    return nogil([&] { return fd(); });
}

std::string fmt(double v) {
    std::ostringstream s;
    s.precision(10);
    s << v;
    return s.str();
}

// ---------------------------------------------------------------------------
// Moment sums
// ---------------------------------------------------------------------------

template <unsigned Dim>
using Sums = CmomentSums<double, Dim>;

template <unsigned Dim>
void addArray(Sums<Dim>& s, py::handle obj) {
    PointArray p = points(obj, Dim);
    if (p.single) {
        // float points: read and widened block by block into the double sums.
        CmomentSums<float, Dim> f;
        {
            py::gil_scoped_release r;
            f.add(p.data<float>(), p.n, p.rs, p.cs);
        }
        s.merge(Sums<Dim>::fromBytes(f.toBytes()));
        return;
    }
    py::gil_scoped_release r;
    s.add(p.data<double>(), p.n, p.rs, p.cs);
}

template <unsigned Dim>
void bindSums(py::module_& m, char const* name) {
    py::class_<Sums<Dim>>(m, name,
                          "Mergeable moment sums of a point set (sums in double about the first point).\n"
                          "Example: s = MomentSums3(); s.add(pts); s.merge(other); s.fit_plane()")
        .def(py::init<>())
        .def(py::init([](py::handle pts) {
                 Sums<Dim> s;
                 addArray<Dim>(s, pts);
                 return s;
             }),
             py::arg("points"))
        .def("add", [](Sums<Dim>& s, py::handle pts) { addArray<Dim>(s, pts); }, py::arg("points"),
             "Adds the rows of an (N, D) array, read in place.")
        .def("merge", [](Sums<Dim>& s, Sums<Dim> const& o) { s.merge(o); }, py::arg("other"))
        .def("__iadd__", [](Sums<Dim>& s, Sums<Dim> const& o) -> Sums<Dim>& { return s += o; })
        .def("__add__", [](Sums<Dim> const& s, Sums<Dim> const& o) {
            Sums<Dim> r = s;
            r += o;
            return r;
        })
        .def_property_readonly("count", &Sums<Dim>::count)
        .def_property_readonly("centroid", [](Sums<Dim> const& s) {
            auto c = s.centroid();
            std::vector<double> v{c.x, c.y};
            if constexpr (Dim == 3) v.push_back(c.z);
            return py::array_t<double>(v.size(), v.data());
        })
        .def("to_bytes", [](Sums<Dim> const& s) {
            auto b = s.toBytes();
            return py::bytes(reinterpret_cast<char const*>(b.data()), b.size());
        })
        .def_static("from_bytes", [](py::bytes b) {
            std::string s = b;
            return Sums<Dim>::fromBytes(reinterpret_cast<std::uint8_t const*>(s.data()), s.size());
        })
        .def(py::pickle(
            [](Sums<Dim> const& s) {
                auto b = s.toBytes();
                return py::make_tuple(py::bytes(reinterpret_cast<char const*>(b.data()), b.size()));
            },
            [](py::tuple t) {
                if (t.size() != 1) throw py::value_error("invalid pickled moment sums");
                std::string s = t[0].cast<py::bytes>();
                return Sums<Dim>::fromBytes(reinterpret_cast<std::uint8_t const*>(s.data()), s.size());
            }))
        .def("__repr__", [name](Sums<Dim> const& s) {
            return std::string(name) + "(count=" + std::to_string(s.count()) + ")";
        });
}

}  // namespace

PYBIND11_MODULE(_metromath, m) {
    m.doc() = "metromath: fits, primitives and geometric queries on numpy arrays";

    // MathError(ValueError) with key, id and the German message.
    static py::exception<CthrowBase> mathError(m, "MathError", PyExc_ValueError);
    g_mathError = mathError.ptr();
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (CthrowBase const& e) {
            raiseMathError(e);
        }
    });

    // ---------------------------------------------------------------- primitives
    py::class_<Cline2<double>>(m, "Line2", "Planar line: point and unit direction.\nExample: Line2([0, 0], [1, 0])")
        .def(py::init([](py::handle p, py::handle d) {
                 Cpoint2<double> dd = pt2(d);
                 return Cline2<double>(pt2(p), Cdirec2<double>(dd.x, dd.y));
             }),
             py::arg("point"), py::arg("direction"))
        .def_property_readonly("point", [](Cline2<double> const& l) { return arr2(l.point()); })
        .def_property_readonly("direction", [](Cline2<double> const& l) {
            return arr2(Cpoint2<double>(l.direction().x, l.direction().y));
        })
        .def("is_valid", &Cline2<double>::isValid)
        .def("__repr__", [](Cline2<double> const& l) {
            return "Line2(point=(" + fmt(l.point().x) + ", " + fmt(l.point().y) + "), direction=(" +
                   fmt(l.direction().x) + ", " + fmt(l.direction().y) + "))";
        });

    py::class_<Ccircle2<double>>(m, "Circle2", "Planar circle.\nExample: Circle2([0, 0], 1.0)")
        .def(py::init([](py::handle c, double r) { return Ccircle2<double>(pt2(c), r); }), py::arg("center"),
             py::arg("radius"))
        .def_property_readonly("center", [](Ccircle2<double> const& c) { return arr2(c.center()); })
        .def_property_readonly("radius", [](Ccircle2<double> const& c) { return c.radius(); })
        .def("is_valid", &Ccircle2<double>::isValid)
        .def("__repr__", [](Ccircle2<double> const& c) {
            return "Circle2(center=(" + fmt(c.center().x) + ", " + fmt(c.center().y) + "), radius=" +
                   fmt(c.radius()) + ")";
        });

    py::class_<Cline3<double>>(m, "Line3", "Spatial line: point and unit direction.\nExample: Line3([0, 0, 0], [0, 0, 1])")
        .def(py::init([](py::handle p, py::handle d) {
                 Cpoint3<double> dd = pt3(d);
                 return Cline3<double>(pt3(p), Cdirec3<double>(dd.x, dd.y, dd.z));
             }),
             py::arg("point"), py::arg("direction"))
        .def_property_readonly("point", [](Cline3<double> const& l) {
            return arr3(l.point().x, l.point().y, l.point().z);
        })
        .def_property_readonly("direction", [](Cline3<double> const& l) {
            return arr3(l.direction().x, l.direction().y, l.direction().z);
        })
        .def("is_valid", &Cline3<double>::isValid)
        .def("__repr__", [](Cline3<double> const& l) {
            return "Line3(point=(" + fmt(l.point().x) + ", " + fmt(l.point().y) + ", " + fmt(l.point().z) +
                   "), direction=(" + fmt(l.direction().x) + ", " + fmt(l.direction().y) + ", " +
                   fmt(l.direction().z) + "))";
        });

    py::class_<Cplane3<double>>(m, "Plane3", "Plane a*x + b*y + c*z + d = 0 with unit normal (a, b, c).\nExample: Plane3([0, 0, 1], -2.0)")
        .def(py::init([](py::handle n, double d) {
                 Cpoint3<double> nn = pt3(n);
                 return Cplane3<double>(Cdirec3<double>(nn.x, nn.y, nn.z), d);
             }),
             py::arg("normal"), py::arg("d"))
        .def_property_readonly("normal", [](Cplane3<double> const& e) { return arr3(e.a(), e.b(), e.c()); })
        .def_property_readonly("d", [](Cplane3<double> const& e) { return e.d(); })
        .def("is_valid", &Cplane3<double>::isValid)
        .def("__repr__", [](Cplane3<double> const& e) {
            return "Plane3(normal=(" + fmt(e.a()) + ", " + fmt(e.b()) + ", " + fmt(e.c()) + "), d=" + fmt(e.d()) +
                   ")";
        });

    py::class_<Csphere3<double>>(m, "Sphere3", "Sphere.\nExample: Sphere3([0, 0, 0], 1.0)")
        .def(py::init([](py::handle c, double r) { return Csphere3<double>(pt3(c), r); }), py::arg("center"),
             py::arg("radius"))
        .def_property_readonly("center", [](Csphere3<double> const& s) {
            return arr3(s.center().x, s.center().y, s.center().z);
        })
        .def_property_readonly("radius", [](Csphere3<double> const& s) { return s.radius(); })
        .def("is_valid", &Csphere3<double>::isValid)
        .def("__repr__", [](Csphere3<double> const& s) {
            return "Sphere3(center=(" + fmt(s.center().x) + ", " + fmt(s.center().y) + ", " + fmt(s.center().z) +
                   "), radius=" + fmt(s.radius()) + ")";
        });

    py::class_<Ccircle3<double>>(m, "Circle3", "Circle in space: plane, centre and radius.\nExample: fit_circle_geom(pts3)")
        .def_property_readonly("center", [](Ccircle3<double> const& c) {
            return arr3(c.center().x, c.center().y, c.center().z);
        })
        .def_property_readonly("normal", [](Ccircle3<double> const& c) {
            return arr3(c.plane().a(), c.plane().b(), c.plane().c());
        })
        .def_property_readonly("radius", [](Ccircle3<double> const& c) { return c.radius(); })
        .def("is_valid", &Ccircle3<double>::isValid)
        .def("__repr__", [](Ccircle3<double> const& c) {
            return "Circle3(center=(" + fmt(c.center().x) + ", " + fmt(c.center().y) + ", " + fmt(c.center().z) +
                   "), normal=(" + fmt(c.plane().a()) + ", " + fmt(c.plane().b()) + ", " + fmt(c.plane().c()) +
                   "), radius=" + fmt(c.radius()) + ")";
        });

    py::class_<Ccylinder3<double>>(m, "Cylinder3", "Infinite circular cylinder: axis line and radius.\nExample: Cylinder3(Line3([0, 0, 0], [0, 0, 1]), 5.0)")
        .def(py::init([](Cline3<double> const& axis, double r) { return Ccylinder3<double>(axis, r); }),
             py::arg("axis"), py::arg("radius"))
        .def_property_readonly("axis", [](Ccylinder3<double> const& z) { return z.axis(); })
        .def_property_readonly("point", [](Ccylinder3<double> const& z) {
            return arr3(z.axis().point().x, z.axis().point().y, z.axis().point().z);
        })
        .def_property_readonly("direction", [](Ccylinder3<double> const& z) {
            return arr3(z.axis().direction().x, z.axis().direction().y, z.axis().direction().z);
        })
        .def_property_readonly("radius", [](Ccylinder3<double> const& z) { return z.radius(); })
        .def("is_valid", &Ccylinder3<double>::isValid)
        .def("__repr__", [](Ccylinder3<double> const& z) {
            auto const& a = z.axis();
            return "Cylinder3(point=(" + fmt(a.point().x) + ", " + fmt(a.point().y) + ", " + fmt(a.point().z) +
                   "), direction=(" + fmt(a.direction().x) + ", " + fmt(a.direction().y) + ", " +
                   fmt(a.direction().z) + "), radius=" + fmt(z.radius()) + ")";
        });

    // ---------------------------------------------------------------- fits
    m.def(
        "fit_line_lsq",
        [](py::handle pts) {
            PointArray p = points(pts, 2);
            double ms = 0;
            Cline2<double> line = dispatch<Cline2<double>>(
                p,
                [&] {
                    Cline2<double> l;
                    ms = approximate<double>::fitLineLsq(in2<double>(p), l);
                    return l;
                },
                [&] {
                    Cline2<float> l;
                    ms = approximate<float>::fitLineLsq(in2<float>(p), l);
                    return l;
                });
            return py::make_tuple(line, ms);
        },
        py::arg("points"),
        "Algebraic line a*x + b*y = 1; returns (Line2, mean squared distance).\nExample: line, ms = fit_line_lsq(pts)");

    m.def(
        "fit_circle_lsq",
        [](py::handle pts, bool record) -> py::object {
            PointArray p = points(pts, 2);
            Ccircle2<double> c = dispatch<Ccircle2<double>>(
                p,
                [&] {
                    Ccircle2<double> r;
                    approximate<double>::fitCircleLsq(in2<double>(p), r);
                    return r;
                },
                [&] {
                    Ccircle2<float> r;
                    approximate<float>::fitCircleLsq(in2<float>(p), r);
                    return r;
                });
            if (!record) return py::cast(c);
            double sd = p.single ? double(approximate<float>::StdAbwCircle2(in2<float>(p), Ccircle2<float>(
                                                                                    Cpoint2<float>(float(c.center().x), float(c.center().y)), float(c.radius()))))
                                 : approximate<double>::StdAbwCircle2(in2<double>(p), c);
            py::dict rec;
            rec["std_abw"] = sd;
            return py::make_tuple(c, rec);
        },
        py::arg("points"), py::arg("record") = false,
        "Algebraic (Kasa) circle; with record=True returns (Circle2, {'std_abw': ...}).\nExample: c = fit_circle_lsq(pts)");

    m.def(
        "fit_sphere_lsq",
        [](py::handle pts) {
            PointArray p = points(pts, 3);
            return dispatch<Csphere3<double>>(
                p,
                [&] {
                    Csphere3<double> r;
                    approximate<double>::fitSphereLsq(in3<double>(p), r);
                    return r;
                },
                [&] {
                    Csphere3<float> r;
                    approximate<float>::fitSphereLsq(in3<float>(p), r);
                    return r;
                });
        },
        py::arg("points"),
        "Algebraic sphere on raw coordinates (the radius sign tells where the origin lies; see the C++ docs).\nExample: s = fit_sphere_lsq(pts)");

    m.def(
        "fit_line_geom",
        [](py::handle pts, bool record) -> py::object {
            py::array a = py::isinstance<py::array>(pts) ? py::reinterpret_borrow<py::array>(pts)
                                                          : py::module_::import("numpy").attr("asarray")(pts);
            const int dim = a.ndim() == 2 ? static_cast<int>(a.shape(1)) : 0;
            if (dim == 3) {
                PointArray p = points(a, 3);
                CqLineGeom3DStdAbw<double> rd;
                CqLineGeom3DStdAbw<float> rf;
                Cline3<double> l = dispatch<Cline3<double>>(
                    p,
                    [&] {
                        Cline3<double> r;
                        approximate<double>::fitLineGeom(in3<double>(p), r, rd);
                        return r;
                    },
                    [&] {
                        Cline3<float> r;
                        approximate<float>::fitLineGeom(in3<float>(p), r, rf);
                        return r;
                    });
                if (!record) return py::cast(l);
                py::dict rec;
                rec["std_abw_main"] = p.single ? double(rf.stdAbwMain) : rd.stdAbwMain;
                rec["std_abw_second"] = p.single ? double(rf.stdAbwSecond) : rd.stdAbwSecond;
                rec["std_abw_third"] = p.single ? double(rf.stdAbwThird) : rd.stdAbwThird;
                return py::make_tuple(l, rec);
            }
            PointArray p = points(a, 2);
            CqLineGeom2DStdAbw<double> rd;
            CqLineGeom2DStdAbw<float> rf;
            Cline2<double> l = dispatch<Cline2<double>>(
                p,
                [&] {
                    Cline2<double> r;
                    if (record) approximate<double>::fitLineGeom(in2<double>(p), r, rd);
                    else approximate<double>::fitLineGeom(in2<double>(p), r);
                    return r;
                },
                [&] {
                    Cline2<float> r;
                    if (record) approximate<float>::fitLineGeom(in2<float>(p), r, rf);
                    else approximate<float>::fitLineGeom(in2<float>(p), r);
                    return r;
                });
            if (!record) return py::cast(l);
            py::dict rec;
            rec["std_abw_orth"] = p.single ? double(rf.stdAbwOrth) : rd.stdAbwOrth;
            rec["std_abw_along"] = p.single ? double(rf.stdAbwAlong) : rd.stdAbwAlong;
            return py::make_tuple(l, rec);
        },
        py::arg("points"), py::arg("record") = false,
        "Orthogonal line fit of (N, 2) or (N, 3) points.\nExample: l = fit_line_geom(pts)");

    m.def(
        "fit_plane_geom",
        [](py::handle pts, bool record) -> py::object {
            PointArray p = points(pts, 3);
            CqPlaneGeomStdAbw<double> rd;
            CqPlaneGeomStdAbw<float> rf;
            Cplane3<double> e = dispatch<Cplane3<double>>(
                p,
                [&] {
                    Cplane3<double> r;
                    approximate<double>::fitPlaneGeom(in3<double>(p), r, rd);
                    return r;
                },
                [&] {
                    Cplane3<float> r;
                    approximate<float>::fitPlaneGeom(in3<float>(p), r, rf);
                    return r;
                });
            if (!record) return py::cast(e);
            py::dict rec;
            rec["std_abw_normal"] = p.single ? double(rf.stdAbwNormal) : rd.stdAbwNormal;
            rec["std_abw_second"] = p.single ? double(rf.stdAbwSecond) : rd.stdAbwSecond;
            rec["std_abw_main"] = p.single ? double(rf.stdAbwMain) : rd.stdAbwMain;
            return py::make_tuple(e, rec);
        },
        py::arg("points"), py::arg("record") = false,
        "Orthogonal (total least squares) plane.\nExample: e = fit_plane_geom(pts)");

    // Geometric (orthogonal-distance) fits.  radius=R selects the fixed-radius
    // form; keyword parameters max_iter, rel_step_tol, grad_tol, init_damping.
    m.def(
        "fit_circle_geom",
        [](py::handle pts, py::object radius, bool record, py::kwargs kw) -> py::object {
            py::array a = py::isinstance<py::array>(pts) ? py::reinterpret_borrow<py::array>(pts)
                                                          : py::module_::import("numpy").attr("asarray")(pts);
            const bool rfix = !radius.is_none();
            const double r = rfix ? radius.cast<double>() : 0.0;
            if (a.ndim() == 2 && a.shape(1) == 3) {
                PointArray p = points(a, 3);
                return geomFit<Ccircle3<double>>(
                    p, record, kw,
                    [&](CqGeomFitPrm<double> const& prm) {
                        std::pair<Ccircle3<double>, CqCircle3GeomStdAbw<double>> o;
                        auto v = in3<double>(p);
                        if (rfix) approximate<double>::fitCircleGeomRfix(v, r, o.first, o.second, prm);
                        else approximate<double>::fitCircleGeom(v, o.first, o.second, prm);
                        return o;
                    },
                    [&](CqGeomFitPrm<float> const& prm) {
                        std::pair<Ccircle3<float>, CqCircle3GeomStdAbw<float>> o;
                        auto v = in3<float>(p);
                        if (rfix) approximate<float>::fitCircleGeomRfix(v, float(r), o.first, o.second, prm);
                        else approximate<float>::fitCircleGeom(v, o.first, o.second, prm);
                        return o;
                    });
            }
            PointArray p = points(a, 2);
            return geomFit<Ccircle2<double>>(
                p, record, kw,
                [&](CqGeomFitPrm<double> const& prm) {
                    std::pair<Ccircle2<double>, CqCircleGeomStdAbw<double>> o;
                    auto v = in2<double>(p);
                    if (rfix) approximate<double>::fitCircleGeomRfix(v, r, o.first, o.second, prm);
                    else approximate<double>::fitCircleGeom(v, o.first, o.second, prm);
                    return o;
                },
                [&](CqGeomFitPrm<float> const& prm) {
                    std::pair<Ccircle2<float>, CqCircleGeomStdAbw<float>> o;
                    auto v = in2<float>(p);
                    if (rfix) approximate<float>::fitCircleGeomRfix(v, float(r), o.first, o.second, prm);
                    else approximate<float>::fitCircleGeom(v, o.first, o.second, prm);
                    return o;
                });
        },
        py::arg("points"), py::arg("radius") = py::none(), py::arg("record") = false,
        "Circle by orthogonal distances of (N, 2) points, or plane and circle together for (N, 3).\n"
        "radius=R fixes the radius; record=True adds a dict with iterations, converged, std_abw and the\n"
        "standard uncertainties.\nExample: c, rec = fit_circle_geom(pts, record=True)");

    m.def(
        "fit_sphere_geom",
        [](py::handle pts, py::object radius, bool record, py::kwargs kw) -> py::object {
            PointArray p = points(pts, 3);
            const bool rfix = !radius.is_none();
            const double r = rfix ? radius.cast<double>() : 0.0;
            return geomFit<Csphere3<double>>(
                p, record, kw,
                [&](CqGeomFitPrm<double> const& prm) {
                    std::pair<Csphere3<double>, CqSphereGeomStdAbw<double>> o;
                    auto v = in3<double>(p);
                    if (rfix) approximate<double>::fitSphereGeomRfix(v, r, o.first, o.second, prm);
                    else approximate<double>::fitSphereGeom(v, o.first, o.second, prm);
                    return o;
                },
                [&](CqGeomFitPrm<float> const& prm) {
                    std::pair<Csphere3<float>, CqSphereGeomStdAbw<float>> o;
                    auto v = in3<float>(p);
                    if (rfix) approximate<float>::fitSphereGeomRfix(v, float(r), o.first, o.second, prm);
                    else approximate<float>::fitSphereGeom(v, o.first, o.second, prm);
                    return o;
                });
        },
        py::arg("points"), py::arg("radius") = py::none(), py::arg("record") = false,
        "Sphere by orthogonal distances; radius=R fixes the radius.\nExample: s = fit_sphere_geom(pts)");

    m.def(
        "fit_cylinder_geom",
        [](py::handle pts, py::object start, py::object radius, bool record, py::kwargs kw) -> py::object {
            PointArray p = points(pts, 3);
            const bool rfix = !radius.is_none();
            const double r = rfix ? radius.cast<double>() : 0.0;
            const bool hasStart = !start.is_none();
            if (hasStart && rfix) throw py::value_error("give either start or radius, not both");
            const Ccylinder3<double> s = hasStart ? start.cast<Ccylinder3<double>>() : Ccylinder3<double>();
            return geomFit<Ccylinder3<double>>(
                p, record, kw,
                [&](CqGeomFitPrm<double> const& prm) {
                    std::pair<Ccylinder3<double>, CqCylinderGeomStdAbw<double>> o;
                    auto v = in3<double>(p);
                    if (rfix) approximate<double>::fitCylinderGeomRfix(v, r, o.first, o.second, prm);
                    else if (hasStart) approximate<double>::fitCylinderGeom(v, s, o.first, o.second, prm);
                    else approximate<double>::fitCylinderGeom(v, o.first, o.second, prm);
                    return o;
                },
                [&](CqGeomFitPrm<float> const& prm) {
                    std::pair<Ccylinder3<float>, CqCylinderGeomStdAbw<float>> o;
                    auto v = in3<float>(p);
                    if (rfix) approximate<float>::fitCylinderGeomRfix(v, float(r), o.first, o.second, prm);
                    else if (hasStart) approximate<float>::fitCylinderGeom(v, fromD<float>(s), o.first, o.second, prm);
                    else approximate<float>::fitCylinderGeom(v, o.first, o.second, prm);
                    return o;
                });
        },
        py::arg("points"), py::arg("start") = py::none(), py::arg("radius") = py::none(), py::arg("record") = false,
        "Cylinder by orthogonal distances: automatic start, from a start Cylinder3, or with radius=R fixed.\n"
        "Example: z, rec = fit_cylinder_geom(pts, record=True)");

    py::class_<Cellipse2<double>>(m, "Ellipse2", "Planar ellipse: centre, semi-axes a >= b, angle of the a axis.\nExample: Ellipse2([0, 0], 3.0, 2.0, 0.5)")
        .def(py::init([](py::handle c, double a, double b, double angle) { return Cellipse2<double>(pt2(c), a, b, angle); }),
             py::arg("center"), py::arg("a"), py::arg("b"), py::arg("angle"))
        .def_property_readonly("center", [](Cellipse2<double> const& e) { return arr2(e.center()); })
        .def_property_readonly("a", [](Cellipse2<double> const& e) { return e.a(); })
        .def_property_readonly("b", [](Cellipse2<double> const& e) { return e.b(); })
        .def_property_readonly("angle", [](Cellipse2<double> const& e) { return e.angle(); })
        .def("is_valid", &Cellipse2<double>::isValid)
        .def("__repr__", [](Cellipse2<double> const& e) {
            return "Ellipse2(center=(" + fmt(e.center().x) + ", " + fmt(e.center().y) + "), a=" + fmt(e.a()) +
                   ", b=" + fmt(e.b()) + ", angle=" + fmt(e.angle()) + ")";
        });

    m.def(
        "fit_ellipse_geom",
        [](py::handle pts, std::string const& method, bool record, py::kwargs kw) -> py::object {
            if (method != "gn" && method != "lm") throw py::value_error("method: 'gn' or 'lm'");
            const bool lm = method == "lm";
            PointArray p = points(pts, 2);
            return geomFit<Cellipse2<double>>(
                p, record, kw,
                [&](CqGeomFitPrm<double> const& prm) {
                    std::pair<Cellipse2<double>, CqEllipseGeomStdAbw<double>> o;
                    auto v = in2<double>(p);
                    if (lm) approximate<double>::fitEllipseGeomLM(v, o.first, o.second, prm);
                    else approximate<double>::fitEllipseGeom(v, o.first, o.second, prm);
                    return o;
                },
                [&](CqGeomFitPrm<float> const& prm) {
                    std::pair<Cellipse2<float>, CqEllipseGeomStdAbw<float>> o;
                    auto v = in2<float>(p);
                    if (lm) approximate<float>::fitEllipseGeomLM(v, o.first, o.second, prm);
                    else approximate<float>::fitEllipseGeom(v, o.first, o.second, prm);
                    return o;
                });
        },
        py::arg("points"), py::arg("method") = "gn", py::arg("record") = false,
        "Ellipse by orthogonal distances: method 'gn' (Gauss-Newton on foot points) or 'lm'\n"
        "(Levenberg-Marquardt over the parameters and one phase per point); both reach the same minimum.\n"
        "Example: e, rec = fit_ellipse_geom(pts, record=True)");

    // ---------------------------------------------------------------- planar transformations
    py::class_<CtransPrm2<double>>(m, "TransPrm2",
                                   "Planar transformation: rotation angles, scale and translation.\n"
                                   "Example: prm = estimate_helmert(src, dst); prm.transform(src)")
        .def(py::init([](double alpha, double beta, py::handle t, py::handle sc) {
                 Cpoint2<double> scale = pt2(sc);
                 return CtransPrm2<double>(alpha, beta, pt2(t), scale);
             }),
             py::arg("alpha"), py::arg("beta"), py::arg("translation"), py::arg("scale"))
        .def_property_readonly("rot_x", &CtransPrm2<double>::getRot_X)
        .def_property_readonly("rot_y", &CtransPrm2<double>::getRot_Y)
        .def_property_readonly("translation", [](CtransPrm2<double> const& t) { return arr2(t.getTranslation()); })
        .def_property_readonly("scale", [](CtransPrm2<double> const& t) { return arr2(t.getScale()); })
        .def(
            "transform",
            [](CtransPrm2<double> const& t, py::handle pts) {
                PointArray p = points(pts, 2);
                auto v = vec2<double>(p);
                std::vector<Cpoint2<double>> out;
                nogil([&] {
                    t.transform(v, out);
                    return 0;
                });
                return array2(out);
            },
            py::arg("points"), "The (N, 2) points mapped forward.")
        .def(
            "retransform",
            [](CtransPrm2<double> const& t, py::handle pts) {
                PointArray p = points(pts, 2);
                auto v = vec2<double>(p);
                std::vector<Cpoint2<double>> out;
                nogil([&] {
                    t.retransform(v, out);
                    return 0;
                });
                return array2(out);
            },
            py::arg("points"), "The backward form (see the C++ docs: the exact inverse only for equal angles and scales).")
        .def("__repr__", [](CtransPrm2<double> const& t) {
            return "TransPrm2(rot_x=" + fmt(t.getRot_X()) + ", rot_y=" + fmt(t.getRot_Y()) + ", translation=(" +
                   fmt(t.getTranslation().x) + ", " + fmt(t.getTranslation().y) + "), scale=(" +
                   fmt(t.getScale().x) + ", " + fmt(t.getScale().y) + "))";
        });
    m.def(
        "estimate_helmert",
        [](py::handle src, py::handle dst) {
            Ctrans2_Helmert<double> est;
            CtransPrm2<double> prm = estimate(est, src, dst);
            return py::make_tuple(prm, column(est.getSolution()));
        },
        py::arg("source"), py::arg("dest"),
        "Similarity transform (rotation, one scale, translation) by least squares; returns\n"
        "(TransPrm2, [tx, ty, a, b]).\nExample: prm, sol = estimate_helmert(src, dst)");
    m.def(
        "estimate_affine",
        [](py::handle src, py::handle dst) {
            Ctrans2_Affine<double> est;
            CtransPrm2<double> prm = estimate(est, src, dst);
            return py::make_tuple(prm, column(est.getSolutionX()), column(est.getSolutionY()));
        },
        py::arg("source"), py::arg("dest"),
        "Affine transform by least squares; returns (TransPrm2, [a0, a1, a2], [b0, b1, b2]).\n"
        "Example: prm, sx, sy = estimate_affine(src, dst)");

    m.def(
        "std_abw_cylinder",
        [](py::handle pts, Ccylinder3<double> const& z) {
            PointArray p = points(pts, 3);
            auto v = in3<double>(p);
            return nogil([&] { return approximate<double>::StdAbwCylinder(v, z); });
        },
        py::arg("points"), py::arg("cylinder"), "Sample deviation of the point-axis distances.\nExample: std_abw_cylinder(pts, z)");

    m.def(
        "std_abw_circle2",
        [](py::handle pts, Ccircle2<double> const& c) {
            PointArray p = points(pts, 2);
            auto v = in2<double>(p);
            return nogil([&] { return approximate<double>::StdAbwCircle2(v, c); });
        },
        py::arg("points"), py::arg("circle"), "Sample deviation of the point-centre distances.\nExample: std_abw_circle2(pts, c)");
    m.def(
        "std_abw_sphere",
        [](py::handle pts, Csphere3<double> const& s) {
            PointArray p = points(pts, 3);
            auto v = in3<double>(p);
            return nogil([&] { return approximate<double>::StdAbwSphere(v, s); });
        },
        py::arg("points"), py::arg("sphere"), "Sample deviation of the point-centre distances.\nExample: std_abw_sphere(pts, s)");
    m.def(
        "std_abw_line2",
        [](py::handle pts, Cline2<double> const& l) {
            PointArray p = points(pts, 2);
            auto v = in2<double>(p);
            return nogil([&] { return approximate<double>::StdAbwLine2(v, l); });
        },
        py::arg("points"), py::arg("line"), "Sample deviation of the signed distances.\nExample: std_abw_line2(pts, l)");

    // ---------------------------------------------------------------- queries
    auto distances2 = [](auto const& prim, py::handle pts) {
        PointArray p = points(pts, 2);
        auto v = in2<double>(p);
        std::vector<double> d;
        nogil([&] {
            geometric<double>::distance(prim, v, d);
            return 0;
        });
        return py::array_t<double>(d.size(), d.data());
    };
    auto distances3 = [](auto const& prim, py::handle pts) {
        PointArray p = points(pts, 3);
        auto v = in3<double>(p);
        std::vector<double> d;
        nogil([&] {
            geometric<double>::distance(prim, v, d);
            return 0;
        });
        return py::array_t<double>(d.size(), d.data());
    };
    m.def("distance", [=](Cline2<double> const& l, py::handle p) { return distances2(l, p); }, py::arg("line"),
          py::arg("points"), "Signed distances of (N, 2) points from a line (see the C++ docs).\nExample: distance(l, pts)");
    m.def("distance", [=](Cplane3<double> const& e, py::handle p) { return distances3(e, p); }, py::arg("plane"),
          py::arg("points"));
    m.def("distance", [=](Cline3<double> const& l, py::handle p) { return distances3(l, p); }, py::arg("line"),
          py::arg("points"));
    m.def("distance", [=](Csphere3<double> const& s, py::handle p) { return distances3(s, p); }, py::arg("sphere"),
          py::arg("points"));
    m.def("distance", [=](Ccylinder3<double> const& z, py::handle p) { return distances3(z, p); }, py::arg("cylinder"),
          py::arg("points"));
    m.def("distance", [=](Cellipse2<double> const& e, py::handle p) { return distances2(e, p); }, py::arg("ellipse"),
          py::arg("points"));
    m.def(
        "project",
        [](Cplane3<double> const& e, py::handle pts) {
            PointArray p = points(pts, 3);
            auto v = vec3<double>(p);
            nogil([&] {
                geometric<double>::project(e, v);
                return 0;
            });
            py::array_t<double> out({static_cast<py::ssize_t>(v.size()), py::ssize_t(3)});
            auto o = out.mutable_unchecked<2>();
            for (std::size_t i = 0; i < v.size(); ++i) {
                o(i, 0) = v[i].x;
                o(i, 1) = v[i].y;
                o(i, 2) = v[i].z;
            }
            return out;
        },
        py::arg("plane"), py::arg("points"), "Orthogonal projection of (N, 3) points onto a plane.\nExample: project(e, pts)");
    m.def(
        "intersect",
        [](Cplane3<double> const& e, Cline3<double> const& l) -> py::object {
            Cpoint3<double> s;
            if (!geometric<double>::intersect(e, l, s)) return py::none();
            return arr3(s.x, s.y, s.z);
        },
        py::arg("plane"), py::arg("line"), "Intersection point of a plane and a line, or None.\nExample: intersect(e, l)");
    m.def(
        "intersect",
        [](Cline2<double> const& a, Cline2<double> const& b) -> py::object {
            Cpoint2<double> s;
            if (!geometric<double>::intersect(a, b, s)) return py::none();
            return arr2(s);
        },
        py::arg("a"), py::arg("b"));
    m.def(
        "intersect",
        [](Cplane3<double> const& a, Cplane3<double> const& b) -> py::object {
            Cline3<double> l;
            if (!geometric<double>::intersect(a, b, l)) return py::none();
            return py::cast(l);
        },
        py::arg("a"), py::arg("b"));

    // ---------------------------------------------------------------- planar sets
    m.def(
        "convex_hull",
        [](py::handle pts) {
            PointArray p = points(pts, 2);
            auto v = in2<double>(p);
            std::vector<Cvector2<double>> w(v.size());
            for (std::size_t i = 0; i < v.size(); ++i) w[i] = Cvector2<double>(v[i].x, v[i].y);
            std::vector<Cvector2<double>> h = nogil([&] { return CcvxHull2D<double>(std::move(w)).points(); });
            py::array_t<double> out({static_cast<py::ssize_t>(h.size()), py::ssize_t(2)});
            auto o = out.mutable_unchecked<2>();
            for (std::size_t i = 0; i < h.size(); ++i) {
                o(i, 0) = h[i].x;
                o(i, 1) = h[i].y;
            }
            return out;
        },
        py::arg("points"), "Corners of the convex hull of (N, 2) points, as an (M, 2) array.\nExample: convex_hull(pts)");

    py::class_<Cpolygon2<double>>(m, "Polygon2", "Polygon with point containment.\nExample: Polygon2(corners).contains(queries)")
        .def(py::init([](py::handle pts) {
                 PointArray p = points(pts, 2, "corners");
                 Cpolygon2<double> poly(vec2<double>(p));
                 poly.preprocess();
                 return poly;
             }),
             py::arg("corners"))
        .def(
            "contains",
            [](Cpolygon2<double> const& poly, py::handle pts) {
                PointArray p = points(pts, 2, "queries");
                auto v = in2<double>(p);
                py::array_t<bool> out(static_cast<py::ssize_t>(v.size()));
                bool* o = out.mutable_data();
                nogil([&] {
                    for (std::size_t i = 0; i < v.size(); ++i) o[i] = poly.pointIsIn(v[i]);
                    return 0;
                });
                return out;
            },
            py::arg("queries"), "Boolean array: which of the (M, 2) query points lie inside.");

    // ---------------------------------------------------------------- solvers
    auto matrixOf = [](py::handle A) {
        auto a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(A);
        if (!a || a.ndim() != 2) throw py::value_error("A: expected a matrix of shape (m, n)");
        Cmatrix<double> M(static_cast<unsigned>(a.shape(0)), static_cast<unsigned>(a.shape(1)));
        if (a.size()) std::memcpy(M.getBase(), a.data(), sizeof(double) * static_cast<std::size_t>(a.size()));
        return M;
    };
    auto rhsOf = [](py::handle b, std::size_t m) {
        auto a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(b);
        if (!a || a.ndim() != 1 || static_cast<std::size_t>(a.shape(0)) != m)
            throw py::value_error("b: expected a vector of shape (" + std::to_string(m) + ",)");
        return std::vector<double>(a.data(), a.data() + a.size());
    };
    m.def(
        "lu_solve",
        [=](py::handle A, py::handle b) {
            Cmatrix<double> M = matrixOf(A);
            std::vector<double> r = rhsOf(b, M.m());
            Cmatrix<double> x = nogil([&] {
                Csolver_luDecomp<double> lu(M);
                return lu.solve(r);
            });
            return column(x);
        },
        py::arg("A"), py::arg("b"), "Solves A x = b by LU decomposition (MathError when singular).\nExample: lu_solve(A, b)");
    m.def(
        "svd_solve",
        [=](py::handle A, py::handle b) {
            Cmatrix<double> M = matrixOf(A);
            std::vector<double> r = rhsOf(b, M.m());
            unsigned rank = 0;
            double cond = 0;
            Cmatrix<double> x = nogil([&] {
                Csolver_svd<double> svd(M);
                Cmatrix<double> s = svd.solve(r);
                rank = svd.getRank();
                cond = svd.getCond();
                return s;
            });
            return py::make_tuple(column(x), rank, cond);
        },
        py::arg("A"), py::arg("b"), "Least-squares / minimum-norm solution; returns (x, rank, cond).\nExample: x, rank, cond = svd_solve(A, b)");

    // ---------------------------------------------------------------- moment sums
    bindSums<2>(m, "MomentSums2");
    bindSums<3>(m, "MomentSums3");
    m.def("fit_circle_lsq_sums", [](Sums<2> const& s) { return nogil([&] { Ccircle2<double> c; approximate<double>::fitCircleLsq(s, c); return c; }); }, py::arg("sums"),
          "Algebraic circle from moment sums.\nExample: fit_circle_lsq_sums(MomentSums2(pts))");
    m.def("fit_line_geom_sums", [](Sums<2> const& s) { return nogil([&] { Cline2<double> l; approximate<double>::fitLineGeom(s, l); return l; }); }, py::arg("sums"));
    m.def("fit_line_geom_sums", [](Sums<3> const& s) { return nogil([&] { Cline3<double> l; approximate<double>::fitLineGeom(s, l); return l; }); }, py::arg("sums"));
    m.def("fit_plane_geom_sums", [](Sums<3> const& s) { return nogil([&] { Cplane3<double> e; approximate<double>::fitPlaneGeom(s, e); return e; }); }, py::arg("sums"),
          "Orthogonal plane from moment sums.\nExample: fit_plane_geom_sums(MomentSums3(pts))");
    m.def("fit_sphere_lsq_sums", [](Sums<3> const& s) { return nogil([&] { Csphere3<double> r; approximate<double>::fitSphereLsq(s, r); return r; }); }, py::arg("sums"));

    // For tests of the zero-copy read: the address the moment sums read from.
    m.def("_data_address", [](py::handle pts, int dim) {
        PointArray p = points(pts, dim);
        return reinterpret_cast<std::uintptr_t>(p.arr.data());
    });
    // For the binding benchmark: the best of `reps` timings of the C++ fit
    // alone ("plane": fitPlaneGeom, "circle": fitCircleLsq) on a copy of the
    // points in a std::vector, in seconds.
    m.def("_cpp_fit_seconds", [](std::string const& kind, py::handle pts, int reps) {
        const bool plane = kind == "plane";
        if (!plane && kind != "circle") throw py::value_error("kind: 'plane' or 'circle'");
        PointArray p = points(pts, plane ? 3 : 2);
        const std::vector<Cpoint3<double>> v3 = plane ? vec3<double>(p) : std::vector<Cpoint3<double>>();
        const std::vector<Cpoint2<double>> v2 = plane ? std::vector<Cpoint2<double>>() : vec2<double>(p);
        double best = 1e300;
        for (int k = 0; k < reps; ++k) {
            const auto t0 = std::chrono::steady_clock::now();
            Cplane3<double> e;
            Ccircle2<double> c;
            if (plane) approximate<double>::fitPlaneGeom(v3, e);
            else approximate<double>::fitCircleLsq(v2, c);
            const std::chrono::duration<double> dt = std::chrono::steady_clock::now() - t0;
            volatile double sink = plane ? e.d() : c.radius();
            (void)sink;
            best = std::min(best, dt.count());
        }
        return best;
    });
    // ... and the address the fits, deviations and distance queries read from.
    m.def("_fit_address", [](py::handle pts, int dim) {
        PointArray p = points(pts, dim);
        if (dim == 2) return p.single ? reinterpret_cast<std::uintptr_t>(in2<float>(p).span.data())
                                      : reinterpret_cast<std::uintptr_t>(in2<double>(p).span.data());
        return p.single ? reinterpret_cast<std::uintptr_t>(in3<float>(p).span.data())
                        : reinterpret_cast<std::uintptr_t>(in3<double>(p).span.data());
    });
}
